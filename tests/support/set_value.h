#pragma once
// Sets an attribute of a node from a value of the attribute's own type,
// naming the attribute when the node refuses it.
#include <gtest/gtest.h>

#include "framework/host/depend_node.h"

template <class V>
void setValue(TdependNode* node, const Tattribute& attribute, const V& value) {
    EXPECT_TRUE(node->setAttributeValue(&attribute, &value)) << attribute.longName().asC();
}
