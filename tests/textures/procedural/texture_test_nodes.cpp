#include "textures/procedural/texture_test_nodes.h"

#include "textures/texture_2d.h"

SN_REGISTER_NODE_CLASS(TtexTestSource)

bool TtexTestSource::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute()->rootParent() != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle out = block.outputValue(attrOutColor(), first, count);
    for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = sColourAt(uv.asFloat2(i));
    ++computes;
    samples += int(count);
    block.setClean(attrOutColor());
    return true;
}

std::vector<T2Float> spreadUvs(unsigned count) {
    std::vector<T2Float> uvs;
    for (unsigned i = 0; i < count; ++i) uvs.push_back(T2Float{float(i % 8) * 0.173f - 0.31f, float(i / 8) * 0.211f + 0.017f});
    return uvs;
}

TtexResult pullTexture(TdependNode* texture, T2Float uv, T2Float filterSize) {
    texture->setAttributeValue(&TdnTx2D::saUvCoord(), &uv);
    texture->setAttributeValue(&TdnTx2D::saUvFilterSize(), &filterSize);
    TtexResult r{};
    texture->getAttributeValue(&TdnTx2D::saOutColor(), &r.colour);
    texture->getAttributeValue(&TdnTx2D::saOutAlpha(), &r.alpha);
    return r;
}
