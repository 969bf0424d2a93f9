#pragma once
// Whether a connection feeds an input. A node that settles some inputs once
// per render (in shadingNodeInit) does so only for inputs nothing drives:
// their values are the node's own for the whole render.
#include <initializer_list>

class Tattribute;
class TdependNode;

// True when a connection ends at one of `roots`, at one of their children
// or at an element of theirs. Not for use while shading: it allocates.
bool anyInputDriven(const TdependNode& node, std::initializer_list<const Tattribute*> roots);
