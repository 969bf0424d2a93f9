#pragma once
// Arithmetic on vectors: multiply/divide/power, sums and averages of many
// inputs, and dot, cross and matrix products.
#include "framework/settling_node.h"
#include "utilities/utility_node.h"

struct TdnVSMultiplyDivide : TdependNodeVS {
    TattributeEnum operation{"operation", "op", TiffTag("OPER")};
    TvectorAttribute input1{"input1", "i1", TiffTag("IN13")};
    TvectorAttribute input2{"input2", "i2", TiffTag("IN23")};
    TvectorAttribute output{"output", "o", TiffTag("OUT3")};
    TdnVSMultiplyDivide() {
        addFields(operation, {{"kNoOperation", "No operation"}, {"kMultiply", "Multiply"}, {"kDivide", "Divide"}, {"kPower", "Power"}});
        operation.setNativeDefaultData(1);
        input2.setDefault(1, 1, 1);
        makeOutput(output);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};
class TdnMultiplyDivide : public TnodeClass<TdnMultiplyDivide, TsettlingNode<TdnMultiplyDivide, TrenderNode>, TdnVSMultiplyDivide> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnMultiplyDivide", 470, "kMultiplyDivide");
    enum Operation : short { kNoOperation, kMultiply, kDivide, kPower };
    // A divisor this close to 0 gives kDivideByZeroResult.
    static constexpr float kDivideByZeroResult = 100000.0f;
    static constexpr const char* kDivideByZeroMessage =
        "basicExpression has encountered a divide by zero. Result is unpredictable.";
    SN_ATTRIBUTE(Operation, operation)
    SN_VECTOR_ATTRIBUTE(Input1, input1)
    SN_VECTOR_ATTRIBUTE(Input2, input2)
    SN_VECTOR_ATTRIBUTE(Output, output)

    // The operation and input2 are settled per render when nothing drives them.
    template <class F>
    void forEachSettled(F&& f) {
        f(fOperation, attrOperation());
        f(fInput2, attrInput2());
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    // Any operation, sample by sample.
    void computeEach(TdataBlock& block, unsigned first, unsigned count);
    TsettledInput<short> fOperation;
    TsettledInput<T3Float> fInput2;
};

struct TdnVSPlusMinusAverage : TdependNodeVS {
    TattributeEnum operation{"operation", "op", TiffTag("OPER")};
    TattributeFloat input1D{"input1D", "i1", TiffTag("IN1D")};
    TpairAttribute input2D{"input2D", "i2", TiffTag("IN2D"), "input2Dx", "i2x", TiffTag("IN2X"), "input2Dy", "i2y", TiffTag("IN2Y")};
    TvectorAttribute input3D{"input3D", "i3", TiffTag("IN3D")};
    TattributeFloat output1D{"output1D", "o1", TiffTag("OU1D")};
    TpairAttribute output2D{"output2D", "o2", TiffTag("OU2D"), "output2Dx", "o2x", TiffTag("OU2X"), "output2Dy", "o2y", TiffTag("OU2Y")};
    TvectorAttribute output3D{"output3D", "o3", TiffTag("OU3D")};
    TdnVSPlusMinusAverage() {
        addFields(operation, {{"kNoOperation", "No operation"}, {"kSum", "Sum"}, {"kSubtract", "Subtract"}, {"kAverage", "Average"}});
        operation.setNativeDefaultData(1);
        input1D.setMulti(true);
        input2D.whole.setMulti(true);
        input3D.whole.setMulti(true);
        makeOutput(output1D);
        makeOutput(output2D);
        makeOutput(output3D);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};
// Sum, difference or average of the existing elements of each multi, in
// index order; the 1D, 2D and 3D sides are independent.
class TdnPlusMinusAverage : public TnodeClass<TdnPlusMinusAverage, TrenderNode, TdnVSPlusMinusAverage> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnPlusMinusAverage", 471, "kPlusMinusAverage");
    enum Operation : short { kNoOperation, kSum, kSubtract, kAverage };
    SN_ATTRIBUTE(Operation, operation)
    SN_ATTRIBUTE(Input1D, input1D)
    SN_PAIR_ATTRIBUTE(Input2D, input2D, x, y)
    SN_VECTOR_ATTRIBUTE(Input3D, input3D)
    SN_ATTRIBUTE(Output1D, output1D)
    SN_PAIR_ATTRIBUTE(Output2D, output2D, x, y)
    SN_VECTOR_ATTRIBUTE(Output3D, output3D)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TdnVSVectorProduct : TdependNodeVS {
    TattributeEnum operation{"operation", "op", TiffTag("OPER")};
    TvectorAttribute input1{"input1", "i1", TiffTag("IN13")};
    TvectorAttribute input2{"input2", "i2", TiffTag("IN23")};
    TattributeFltMatrix matrix{"matrix", "m", TiffTag("MATR")};
    TattributeBoolean normalizeOutput{"normalizeOutput", "no", TiffTag("NORM")};
    TvectorAttribute output{"output", "o", TiffTag("OUT3")};
    TdnVSVectorProduct();
    bool setupDependencies(TdependencyMatrix& m) override;
};
class TdnVectorProduct : public TnodeClass<TdnVectorProduct, TrenderNode, TdnVSVectorProduct> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnVectorProduct", 472, "kVectorProduct");
    enum Operation : short { kNoOperation, kDotProduct, kCrossProduct, kVectorMatrix, kPointMatrix };
    static constexpr const char* kZeroLengthMessage = ": found a zero-length output vector. Result is unpredictable.";
    SN_ATTRIBUTE(Operation, operation)
    SN_VECTOR_ATTRIBUTE(Input1, input1)
    SN_VECTOR_ATTRIBUTE(Input2, input2)
    SN_ATTRIBUTE(Matrix, matrix)
    SN_ATTRIBUTE(NormalizeOutput, normalizeOutput)
    SN_VECTOR_ATTRIBUTE(Output, output)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
