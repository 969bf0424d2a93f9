#include "shading/program_listing.h"

#include <cctype>
#include <cstdio>
#include <sstream>

#include "framework/host/depend_graph.h"
#include "framework/host/depend_node.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"

namespace {
constexpr const char* kOptionNames[kTSEoptionCount] = {
    "surfaceColorTransparency", "volumeColorTransparency", "displacement",         "surfaceShadows",
    "volumeTransparency",       "volumeEmission",          "surfaceParticleColor", "surfaceParticleTransparency",
    "surfaceBasic",             "surfacePreLight",         "surfaceLightAtPoint",  "singleLight",
};

// Every opcode has a name; a value that is none prints as its number.
std::string opcodeText(uint32_t op) {
    const char* name = opcodeName(op);
    return name ? name : "op" + std::to_string(op);
}

int optionIndexOf(const std::string& name) {
    for (unsigned o = 0; o < kTSEoptionCount; ++o) {
        std::string n = kOptionNames[o];
        std::string k = "k" + n;
        k[1] = char(std::toupper(k[1]));
        if (name == n || name == k || name == std::to_string(o)) return int(o);
    }
    return -1;
}

class Tprinter {
public:
    Tprinter(const TshadingOpus& opus, std::ostream& out) : fOpus(opus), fProgram(opus.program()), fOut(out) {}

    void print() {
        instructions();
        segments();
        blocks();
        fields();
    }

private:
    // The attribute of a block that lives at `offset` of its constant or variable area.
    std::string attributeAt(unsigned block, unsigned offset, bool variable) const {
        const TSEblockLayout& layout = fProgram.blocks[block];
        TdependNode* node = layout.node;
        for (unsigned i = 0; i < node->attributeCount(); ++i) {
            const auto& info = layout.info[i];
            bool isVariable = info.kind & TdataBlockRendering::kVariableBit;
            if (isVariable == variable && info.offset == offset) return node->attribute(i)->longName().str();
        }
        for (unsigned i = 0; i < node->attributeCount(); ++i) {
            const auto& info = layout.info[i];
            const Tattribute* a = node->attribute(i);
            if (a->isArray() && (info.kind & TdataBlockRendering::kVariableBit) == variable && offset > info.offset)
                return a->longName().str() + "[+" + std::to_string(offset - info.offset) + "]";
        }
        return std::string(1, '+').append(std::to_string(offset));
    }
    std::string side(TSEside s, uint16_t block, uint32_t offset) const {
        if (s == kSideSample) return std::string("sample.") + (offset < kSampleItemCount ? Tsample::fDataItem[offset] : "user" + std::to_string(offset));
        if (block == 0xFFFF) return "constant+" + std::to_string(offset);
        std::string node = fProgram.blocks[block].node->name().str();
        return node + "." + attributeAt(block, offset, s == kSideVariable) + (s == kSideConstant ? " (constant)" : "");
    }
    std::string describe(const TSEcopy& c) const {
        // An output written in place keeps its own value behind its reference slot.
        const uint32_t source = c.destInPlace ? c.sourceOffset - uint32_t(sizeof(TdataBlockRendering::OtherBlockRef)) : c.sourceOffset;
        std::string text = side(c.sourceSide, c.sourceBlock, source) + " -> " + side(c.destSide, c.destBlock, c.destOffset) + ", " +
                           std::to_string(c.size) + " bytes";
        if (c.sourceSegment > 0) text += ", source in segment " + std::to_string(c.sourceSegment);
        if (c.destInPlace) text += ", only when the records are not evenly spaced";
        return text;
    }

    void instructions() {
        fOut << "instructions: " << fProgram.instructionCount << "\n";
        fOut << "  #    opcode          node                 plug                 block  detail\n";
        for (unsigned k = 0; k < fProgram.instructionCount; ++k) {
            const TSEinstruction& in = fProgram.instructions[k];
            std::string node = "-", plug = "-", block = "-", detail;
            switch (in.opcode) {
                case kOpCompute:
                case kOpComputeLocked: {
                    const TSEcomputeTarget& t = fProgram.targets[in.word[1]];
                    node = t.plug.node()->name().str();
                    plug = t.plug.attribute()->longName().str();
                    block = std::to_string(in.word[0]);
                    break;
                }
                case kOpSetUpBlock: {
                    const TSEblockLayout& l = fProgram.blocks[in.word[0]];
                    node = l.node->name().str();
                    block = std::to_string(in.word[0]);
                    detail = "element " + std::to_string(l.elementSize) + " bytes";
                    break;
                }
                case kOpCopy:
                    detail = describe(fProgram.copies[in.word[0]]);
                    break;
                case kOpCopyFromStack:
                    detail = "stack@" + std::to_string(in.word[0]) + ": " + describe(fProgram.copies[in.word[1]]);
                    break;
                case kOpPushProvider:
                    node = fProgram.blocks[in.word[1]].node->name().str();
                    plug = attributeAt(in.word[1], in.word[2], true);
                    block = std::to_string(in.word[1]);
                    detail = "stack@" + std::to_string(in.word[0]);
                    break;
                case kOpPopProvider:
                    detail = "stack@" + std::to_string(in.word[0]);
                    break;
                case kOpInitStack:
                    detail = std::string("stack@") + std::to_string(in.word[0]) + " for " + Tsample::fDataItem[in.word[2]];
                    break;
                case kOpLinkSample: {
                    const TSEblockLayout& l = fProgram.blocks[in.word[0]];
                    node = l.node->name().str();
                    plug = l.node->attribute(in.word[1])->longName().str();
                    block = std::to_string(in.word[0]);
                    detail = in.word[4] ? node + "." + plug + " -> " + side(kSideSample, 0xFFFF, in.word[2]) + ", written in place"
                                        : side(kSideSample, 0xFFFF, in.word[2]) + " -> " + node + "." + plug + ", read in place";
                    break;
                }
                case kOpLinkBlock: {
                    const Tattribute* linked = fProgram.blocks[in.word[0]].node->attribute(in.word[1]);
                    node = fProgram.blocks[in.word[0]].node->name().str();
                    plug = linked->longName().str();
                    block = std::to_string(in.word[0]);
                    // An output linked elsewhere is written into its reader's output.
                    detail = (linked->isComputed() ? "writes into " : "reads ") + fProgram.blocks[in.word[2]].node->name().str() + "." +
                             fProgram.blocks[in.word[2]].node->attribute(in.word[3])->longName().str();
                    break;
                }
            }
            char line[256];
            std::snprintf(line, sizeof line, "  %-4u %-15s %-20s %-20s %-6s ", k, opcodeText(in.opcode).c_str(), node.c_str(), plug.c_str(),
                          block.c_str());
            fOut << line << detail << "\n";
        }
    }

    void segments() {
        fOut << "segments: " << fProgram.segmentCount << "\n";
        for (unsigned s = 0; s < fProgram.segmentCount; ++s)
            fOut << "  " << s << ": instructions " << fProgram.segments[s] << " to " << fProgram.segments[s + 1]
                 << (s == 0 ? " (straight line)" : " (on demand)") << "\n";
    }

    void blocks() {
        fOut << "blocks: " << fProgram.blockCount << "\n";
        for (unsigned b = 0; b < fProgram.blockCount; ++b) {
            const TSEblockLayout& l = fProgram.blocks[b];
            fOut << "  block " << b << " " << l.node->name().str() << ": element " << l.elementSize << " bytes, constants "
                 << l.constantSize << " bytes\n";
            for (unsigned i = 0; i < l.node->attributeCount(); ++i) {
                const auto& info = l.info[i];
                char line[256];
                std::snprintf(line, sizeof line, "    %-24s %-24s offset %-5u %s %d\n", l.node->attribute(i)->longName().asC(),
                              TdataBlockRendering::kindName(info.kind), unsigned(info.offset),
                              l.node->attribute(i)->isArray() ? "multi" : "segment", int(info.parentOrSegment));
                fOut << line;
            }
        }
    }

    void fields() {
        const unsigned* table = fOpus.fieldOffsetTable();
        fOut << "sample fields:\n";
        for (unsigned i = 0; i < kSampleItemCount; ++i)
            if (table[i]) fOut << "  " << i << " " << Tsample::fDataItem[i] << " at " << table[i] << "\n";
        unsigned users = fOpus.sizeOffset();
        for (unsigned u = 0; u < users; ++u)
            fOut << "  " << kFirstUserField + u << " " << (u == 0 ? "illumination" : "user") << " at " << table[kFirstUserField + u]
                 << "\n";
        fOut << "  end of items " << table[kSampleItemCount] << ", total " << table[Tsample::sFieldTableLength(users) - 1] << "\n";
    }

    const TshadingOpus& fOpus;
    const TshadingOpus::Program& fProgram;
    std::ostream& fOut;
};

}  // namespace

int shadingOptionIndex(const std::string& name) { return optionIndexOf(name); }

std::string shadingOptionNames() {
    std::string known;
    for (const char* n : kOptionNames) known += std::string(known.empty() ? "" : ", ") + n;
    return known;
}

bool shadingProgramListing(TdependGraph& graph, const std::string& file, const std::string& groupName,
                           const std::string& optionName, std::string& listing, std::string& error) {
    const int option = optionIndexOf(optionName);
    if (option < 0) {
        error = "unknown option '" + optionName + "' (options: " + shadingOptionNames() + ")";
        return false;
    }
    TdependNode* node = graph.findNode(Tstring(groupName));
    if (!node) {
        error = file + ": no shading group named '" + groupName + "'";
        return false;
    }
    if (!node->typeof()->istype(TDNshadingEngine::sMetaclass())) {
        error = file + ": '" + groupName + "' is a " + node->typeName().str() + ", not a shading group";
        return false;
    }
    auto* group = static_cast<TDNshadingEngine*>(node);
    TbitField64 result;
    const bool found = group->analyse(TSEoption(option), &result, nullptr, nullptr, nullptr);
    TshadingOpus* opus = group->option(unsigned(option)).opus;
    std::ostringstream out;
    out << "program of " << groupName << ", option " << kOptionNames[option] << " (" << option << ")\n";
    if (!found || !opus) {
        out << "nothing to shade: no network answers this option\n";
    } else {
        out << "provides:";
        for (unsigned i = 0; i < kSampleItemCount; ++i)
            if (result.test(i)) out << " " << Tsample::fDataItem[i];
        out << "\n";
        Tprinter(*opus, out).print();
        TshadingCatalog::deleteOpus(group, unsigned(option), true);
    }
    listing = out.str();
    return true;
}
