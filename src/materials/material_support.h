#pragma once
// What the surface materials ask of the rest of the library while a network
// is analysed: whether a connection varies per sample, whether the render
// traces rays, and the forwarding of dirty messages to message destinations.
#include "framework/host/attribute_groups.h"
#include "framework/host/bit_field.h"
#include "framework/host/depend_node.h"

class TDNshadingEngine;
class TdependGraph;

// Whether the value arriving through `source` may differ from sample to
// sample. Until the engine answers this itself every connection counts as
// varying, which only keeps inputs the engine could have pruned.
bool connectionIsSampleDependent(TDNshadingEngine* engine, const Tplug& source);

// enableRaytracing of the graph's render quality node; true when the graph
// has none, so that nothing is pruned on a guess.
bool rayTracingEnabled(TdependGraph* graph);

// The ray-related items of the requirement mask: ray depth, ray instance,
// primitive id and medium refractive index.
inline constexpr unsigned kRayRequirementBits[] = {36, 37, 45, 46};
void clearRayRequirements(TbitField64& mask);

// Marks dirty whatever is connected to the node's message attribute, so that
// a node that watches this one through it hears of every change.
void forwardDirtyThroughMessage(TdependNode& node, TmsgDirty& msg);

// An input the sample fills by name, hidden from the artist; for a triple,
// the parent and its children.
void declareSampleInput(Tattribute& a);
void declareSampleInput(TtripleAttribute& a);
