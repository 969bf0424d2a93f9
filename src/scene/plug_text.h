#pragma once
// The text form of a plug in scene files and messages: "node.attr",
// "node.multi[3]" and, below an element, "node.multi[3].child.grandchild".
// A child of a plain compound is named by itself ("node.colorR"), which the
// graph's plug lookup accepts.
#include <string>

class Tattribute;
class TdependNode;
class Tplug;

std::string plugText(const TdependNode& node, const Tattribute& attribute, int index);
std::string plugText(const Tplug& plug);
