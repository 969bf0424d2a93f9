#include "scene/scene_test_node.h"

SN_REGISTER_NODE_CLASS(TsceneTestNode)

bool TsceneTestNode::computePlug(const Tplug& plug, TdataBlock& block) {
    if (plug.attribute() != &attrOutValue()) return TdependNode::computePlug(plug, block);
    float gain = block.inputValue(attrGain()).asFloat();
    double weight = block.inputValue(attrWeight()).as<double>();
    block.outputValue(attrOutValue()).asFloat() = float(gain * weight);
    block.setClean(attrOutValue());
    return true;
}
