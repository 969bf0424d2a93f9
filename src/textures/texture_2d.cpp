#include "textures/texture_2d.h"

#include <algorithm>
#include <cmath>

SN_REGISTER_NODE_CLASS(TdnTx2D)

TdnVSTx2D::TdnVSTx2D() {
    filter.setNativeDefaultData(1.0);
    colorGain.setDefault(1, 1, 1);
    alphaGain.setNativeDefaultData(1.0);
    defaultColor.setDefault(0.5f, 0.5f, 0.5f);
    outColor.setFlag(kAttrWritable, false);
    outAlpha.setFlag(kAttrWritable, false);
}

bool TdnVSTx2D::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m,
            {&uvCoord.whole, &uvFilterSize.whole, &filter, &filterOffset, &invert, &alphaIsLuminance, &colorGain.whole,
             &colorOffset.whole, &alphaGain, &alphaOffset, &defaultColor.whole},
            {&outColor.whole, &outAlpha});
    return true;
}

void TdnVSTx2D::affectsOutputs(TdependencyMatrix& m, std::initializer_list<const Tattribute*> inputs) {
    TdnVSTx2D& base = TdnTx2D::sVsData();
    for (const Tattribute* in : inputs) base.affects(m, {in}, {&base.outColor.whole, &base.outAlpha});
}

Ttx2dEffects::Ttx2dEffects(TdataBlock& block, unsigned first, unsigned count, const TdnTx2D* texture) {
    // One look at the class's attributes rather than one per accessor.
    const TdnVSTx2D& vs = TdnTx2D::sVsData();
    if (texture) {
        const TsettledColorEffects& s = texture->settledEffects();
        invert = settledOrRead(s.invert, block, vs.invert, first, count);
        alphaIsLuminance = settledOrRead(s.alphaIsLuminance, block, vs.alphaIsLuminance, first, count);
        colorGain = settledOrRead(s.colorGain, block, vs.colorGain.whole, first, count);
        colorOffset = settledOrRead(s.colorOffset, block, vs.colorOffset.whole, first, count);
        alphaGain = settledOrRead(s.alphaGain, block, vs.alphaGain, first, count);
        alphaOffset = settledOrRead(s.alphaOffset, block, vs.alphaOffset, first, count);
        return;
    }
    invert = block.inputValue(vs.invert, first, count);
    alphaIsLuminance = block.inputValue(vs.alphaIsLuminance, first, count);
    colorGain = block.inputValue(vs.colorGain.whole, first, count);
    colorOffset = block.inputValue(vs.colorOffset.whole, first, count);
    alphaGain = block.inputValue(vs.alphaGain, first, count);
    alphaOffset = block.inputValue(vs.alphaOffset, first, count);
}

void Ttx2dEffects::apply(unsigned i, T3Float& colour, float& alpha) const { values(i).apply(colour, alpha); }

Tattribute* TdnTx2D::alternateAttr(const Tattribute* a) {
    if (!a) return nullptr;
    const Tstring& name = a->longName();
    if (name == Tstring("color")) return &attrOutColor();
    if (name == Tstring("alpha") || name == Tstring("transparency")) return &attrOutAlpha();
    if (name == Tstring("uv")) return &attrUvCoord();
    return nullptr;
}

bool TdnTx2D::isColorOutput(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    if (!a) return false;
    const TdnVSTx2D& vs = sVsData();
    return a == &vs.outColor.whole || a == &vs.outAlpha || a->rootParent() == &vs.outColor.whole;
}

bool TdnTx2D::checkOutside(TdataBlock& block, const T2Float& uv) {
    if (!isOutsideUv(uv)) return false;
    setToDefaultColor(block);
    return true;
}

void TdnTx2D::setToDefaultColor(TdataBlock& block) {
    T3Float c = block.inputValue(saDefaultColor()).asFloat3();
    block.outputValue(saOutColor()).asFloat3() = c;
    block.outputValue(saOutAlpha()).asFloat() = luminance(c);
}

float TdnTx2D::filteredSize(const T2Float& size, float filter, float filterOffset) {
    return std::fabs(std::max(size.x, size.y) * std::max(0.0f, filter) + filterOffset);
}

float TdnTx2D::filteredSize(TdataBlock& block) {
    return filteredSize(block.inputValue(saUvFilterSize()).asFloat2(), block.inputValue(saFilter()).asFloat(),
                        block.inputValue(saFilterOffset()).asFloat());
}

void TdnTx2D::colorEffects(TdataBlock& block, T3Float& colour, float& alpha) {
    unsigned i = block.currentIndex();
    Ttx2dEffects(block, i, 1).apply(i, colour, alpha);
}

bool TdnTx2D::mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                         const TdoubleArray& v) {
    if (u.length() != v.length()) return false;
    unsigned n = u.length();
    if (colours) {
        colours->setLength(n);
        for (unsigned i = 0; i < n; ++i) (*colours)[i] = T4dDblVector(0, 0, 0, 1);
    }
    if (alphas) {
        alphas->setLength(n);
        for (unsigned i = 0; i < n; ++i) (*alphas)[i] = 0.0;
    }
    return true;
}

bool TdnTx2D::mapUVtoColor(float u, float v, T3Float& colour, float& alpha) {
    if (hasConnections(&attrUvCoord()) || hasConnections(&attrUvCoordU()) || hasConnections(&attrUvCoordV())) return false;
    T2Float uv{u, v};
    if (!setAttributeValue(&attrUvCoord(), &uv)) return false;
    return getAttributeValue(&attrOutColor(), &colour) && getAttributeValue(&attrOutAlpha(), &alpha);
}

bool TdnTx2D::mapUVtoClrByCompute(const TdoubleArray& u, const TdoubleArray& v, T4dDblVectorArray* colours, TdoubleArray* alphas) {
    if (u.length() != v.length()) return false;
    unsigned n = u.length();
    if (colours) colours->setLength(n);
    if (alphas) alphas->setLength(n);
    T2Float saved;
    getAttributeValue(&attrUvCoord(), &saved);
    for (unsigned i = 0; i < n; ++i) {
        T3Float c;
        float a = 0.0f;
        if (!mapUVtoColor(float(u[i]), float(v[i]), c, a)) return false;
        if (colours) (*colours)[i] = T4dDblVector(c.x, c.y, c.z, 1.0 - a);
        if (alphas) (*alphas)[i] = a;
    }
    setAttributeValue(&attrUvCoord(), &saved);
    return true;
}

bool TdnTx2D::getColorAttrValue(TdependNode* node, const Tattribute& attribute, T3Float& colour) {
    if (!node) return false;
    return node->getAttributeValue(&attribute, &colour);
}

TdnTx2D* TdnTx2D::getInputTxNode(const Tplug& plug) {
    if (plug.isNull()) return nullptr;
    const Tplug* source = plug.node()->sourceOf(plug);
    if (!source || source->isNull()) return nullptr;
    return static_cast<TdnTx2D*>(source->node()->cast(TdnTx2D::sMetaclass()));
}
