#include "post/post_messages.h"

#include <cstdio>

namespace {
std::function<void(const std::string&)>& sink() {
    static std::function<void(const std::string&)> s;
    return s;
}
}  // namespace

void postMessage(const std::string& line) {
    if (sink())
        sink()(line);
    else
        std::fprintf(stderr, "%s\n", line.c_str());
}

void setPostMessageSink(std::function<void(const std::string&)> s) { sink() = std::move(s); }
