#pragma once
// Reading a node's own values by attribute name, for the viewport: what the
// user set, not what a connection would bring.
#include <optional>

#include "framework/host/math.h"
#include "framework/host/tstring.h"

class TdependNode;

// The stored value of a number attribute (float, double, int, boolean,
// enum) of that name, when the node has one and it is unconnected.
std::optional<double> unconnectedNumber(TdependNode* node, const char* name);
// The same for a three-float colour or vector.
std::optional<T3Float> unconnectedColor(TdependNode* node, const char* name);
// True when the named attribute (or one of its children) has an incoming connection.
bool isConnectedInput(TdependNode* node, const char* name);
