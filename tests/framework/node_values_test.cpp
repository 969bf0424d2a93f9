// Values a node holds are destroyed with the node, including those of
// attributes each class down a chain of derived classes adds (strings and
// other values that own memory).
#include <gtest/gtest.h>

#include "framework/host/depend_graph.h"
#include "framework/host/node_class.h"
#include "framework/test_nodes.h"

namespace {
// A float that counts how many of its values are alive.
class TcountedFloat : public TattributeFloat {
public:
    TcountedFloat(const Tstring& longName, const Tstring& shortName, TiffTag tag) : TattributeFloat(longName, shortName, tag) {
        setFlag(kAttrNeedsConstruction, true);
    }
    void constructValue(void* value) const override {
        ++sLive;
        TattributeFloat::constructValue(value);
    }
    void destructValue(void*) const override { --sLive; }
    static inline int sLive = 0;
};

struct TcountedNodeVS : TdependNodeVS {
    TcountedFloat single{"single", "sg", TiffTag("CSNG")};
    TcountedFloat many{"many", "mn", TiffTag("CMNY")};
    TattributeTyped text{"text", "tx", TiffTag("CTXT"), TattributeTyped::Kind::kString};
    TcountedNodeVS() { many.setMulti(true); }
};

// Two levels below the adder: its values sit after those of two classes.
class TcountedNode : public TnodeClass<TcountedNode, TtestDerived, TcountedNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TcountedNode", 9201, "kCountedNode", "countedNode", "CNTD"};
    SN_ATTRIBUTE(Single, single)
    SN_ATTRIBUTE(Many, many)
    SN_ATTRIBUTE(Text, text)
};
}  // namespace

TEST(NodeValues, ClassValuesAreDestroyedWithTheNode) {
    struct Case {
        const char* what;
        bool deleteFirst;  // through deleteNode rather than the graph's end
    } cases[] = {{"graph destroyed", false}, {"node deleted", true}};
    for (const Case& c : cases) {
        const int before = TcountedFloat::sLive;
        {
            TdependGraph graph;
            TdependNode* node = graph.addNode(std::make_unique<TcountedNode>(), "counted");
            float v = 2;
            ASSERT_TRUE(node->setAttributeValue(&TcountedNode::saSingle(), &v));
            for (unsigned i : {0u, 3u, 8u}) ASSERT_TRUE(node->setAttributeValue(&TcountedNode::saMany(), &v, i));
            // Long enough to live on the heap: the sanitizer build's leak
            // checker sees a string the node's destruction forgets.
            Tstring text("a string long enough to live on the heap, not in the small buffer");
            for (const Tattribute* a : {&TcountedNode::saText(), &TtestDerived::saLabel()}) {
                ASSERT_TRUE(node->setAttributeValue(a, &text)) << c.what;
                Tstring read;
                ASSERT_TRUE(node->getAttributeValue(a, &read));
                EXPECT_EQ(read, text) << c.what;
            }
            TdependNode* other = graph.addNode(std::make_unique<TcountedNode>(), "other");
            Tstring untouched;
            ASSERT_TRUE(other->getAttributeValue(&TtestDerived::saLabel(), &untouched));
            EXPECT_TRUE(untouched.isEmpty()) << "the default, not the other node's value";
            EXPECT_EQ(TcountedFloat::sLive, before + 4) << c.what;
            node->removeMultiElement(&TcountedNode::saMany(), 3);
            EXPECT_EQ(TcountedFloat::sLive, before + 3) << c.what;
            if (c.deleteFirst) {
                ASSERT_TRUE(graph.deleteNode(node));
                EXPECT_EQ(TcountedFloat::sLive, before) << c.what;
            }
        }
        EXPECT_EQ(TcountedFloat::sLive, before) << c.what;
    }
}
