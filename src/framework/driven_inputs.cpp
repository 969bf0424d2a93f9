#include "framework/driven_inputs.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "framework/host/depend_node.h"

bool anyInputDriven(const TdependNode& node, std::span<const Tattribute* const> roots) {
    std::vector<std::pair<Tplug, Tplug>> incoming;
    node.allIncoming(incoming);
    for (const auto& [source, destination] : incoming)
        if (std::find(roots.begin(), roots.end(), destination.attribute()->rootParent()) != roots.end()) return true;
    return false;
}
