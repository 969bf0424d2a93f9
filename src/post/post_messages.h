#pragma once
// Where the post passes print their lines: standard error unless a caller
// (a test, a host) takes them.
#include <functional>
#include <string>

void postMessage(const std::string& line);
void setPostMessageSink(std::function<void(const std::string&)> sink);
