// shadenet nodes [TYPE] [--json] [--details]: the registered node types, or
// the attributes of one of them: for scene authors what each means, its unit
// and range; with --details the graph's view (tags, flags, parents).
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "framework/attribute_notes.h"
#include "framework/host/depend_graph.h"
#include "scene/value_codec.h"
#include "tools/subcommand.h"

namespace {
struct Options {
    std::string type;
    bool json = false;
    bool details = false;
};

std::string classificationOf(const TdependNodeMetaClass& t) {
    if (t.fClassification && *t.fClassification) return t.fClassification;
    return TclassificationMgr::getClassification(t.fTypeName()).str();
}

bool mpSafeOf(const TdependNodeMetaClass& t) { return t.fMpSafe ? t.fMpSafe() : (t.fFlags & TdependNode::kMpSafeFlag) != 0; }

// Flag names in the order of the flag word.
const std::pair<uint64_t, const char*> kFlagNames[] = {
    {kAttrReadable, "readable"},   {kAttrWritable, "writable"},         {kAttrArray, "array"},
    {kAttrImplicitInput, "implicit"}, {kAttrStorable, "storable"},      {kAttrComputeDependent, "computeDependent"},
    {kAttrComputed, "computed"},   {kAttrKeyable, "keyable"},           {kAttrHandle, "handle"},
    {kAttrCompound, "compound"},   {kAttrSampleOutput, "sampleOutput"}, {kAttrHidden, "hidden"},
};

std::vector<std::string> flagNames(uint64_t flags) {
    std::vector<std::string> names;
    for (auto& [bit, name] : kFlagNames)
        if (flags & bit) names.push_back(name);
    return names;
}

// Columns padded to their widest cell.
void printTable(const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths;
    for (auto& row : rows)
        for (size_t i = 0; i < row.size(); ++i) {
            if (widths.size() <= i) widths.push_back(0);
            widths[i] = std::max(widths[i], row[i].size());
        }
    for (auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line += std::string(widths[i] - row[i].size() + 2, ' ');
        }
        std::cout << line << "\n";
    }
}

int listTypes(const Options& options) {
    auto types = TdependGraph::nodeTypes();
    if (options.json) {
        TsceneJson list = TsceneJson::array();
        for (TdependNodeMetaClass* t : types)
            list.push_back({{"type", t->fTypeName().str()},
                            {"tag", t->fIffTag().asString()},
                            {"classification", classificationOf(*t)},
                            {"apiType", t->fApiTypeName ? t->fApiTypeName : ""},
                            {"apiTypeNumber", t->fApiType},
                            {"mpSafe", mpSafeOf(*t)}});
        std::cout << list.dump(2) << "\n";
        return kExitOk;
    }
    std::vector<std::vector<std::string>> rows{{"TYPE", "TAG", "CLASSIFICATION", "API TYPE", "MP-SAFE"}};
    for (TdependNodeMetaClass* t : types) {
        std::string classification = classificationOf(*t);
        rows.push_back({t->fTypeName().str(), t->fIffTag().asString(), classification.empty() ? "-" : classification,
                        std::string(t->fApiTypeName ? t->fApiTypeName : "") + " (" + std::to_string(t->fApiType) + ")",
                        mpSafeOf(*t) ? "yes" : "no"});
    }
    printTable(rows);
    return kExitOk;
}

int listAttributes(const Options& options) {
    TdependNodeMetaClass* type = TdependGraph::findNodeType(options.type);
    if (!type) {
        return reportError("unknown node type '" + options.type + "' (shadenet nodes lists them)", kExitUsage);
    }
    if (type->fInitialize) type->fInitialize();
    const TattributeList& attributes = type->fVs().attributes();
    if (options.json) {
        TsceneJson list = TsceneJson::array();
        for (unsigned i = 0; i < attributes.length(); ++i) {
            const Tattribute& a = *attributes[i];
            TsceneJson defaultValue = encodeWholeValue(a, a.defaultData());
            list.push_back({{"long", a.longName().str()},
                            {"short", a.shortName().str()},
                            {"tag", a.tag().asString()},
                            {"type", valueTypeName(a.valueType())},
                            {"default", defaultValue},
                            {"softMin", a.hasSoftMin() ? TsceneJson(a.softMin()) : TsceneJson()},
                            {"softMax", a.hasSoftMax() ? TsceneJson(a.softMax()) : TsceneJson()},
                            {"flags", flagNames(a.flags())},
                            {"flagWord", a.flags()},
                            {"parent", a.parent() ? TsceneJson(a.parent()->longName().str()) : TsceneJson()}});
            TattributeDescription d = describeAttribute(*type, a);
            list.back()["description"] = d.description;
            list.back()["unit"] = d.unit;
            list.back()["range"] = d.range;
        }
        TsceneJson doc = {{"type", type->fTypeName().str()},
                          {"tag", type->fIffTag().asString()},
                          {"classification", classificationOf(*type)},
                          {"apiType", type->fApiTypeName ? type->fApiTypeName : ""},
                          {"apiTypeNumber", type->fApiType},
                          {"mpSafe", mpSafeOf(*type)},
                          {"attributes", std::move(list)}};
        std::cout << doc.dump(2) << "\n";
        return kExitOk;
    }
    std::string classification = classificationOf(*type);
    std::cout << type->fTypeName().str() << " (" << type->fIffTag().asString() << ")  "
              << (classification.empty() ? "no classification" : classification) << "  " << type->fApiTypeName << " ("
              << type->fApiType << ")  " << (mpSafeOf(*type) ? "mp-safe" : "not mp-safe") << "\n\n";
    std::vector<std::vector<std::string>> rows;
    if (options.details)
        rows.push_back({"LONG", "SHORT", "TAG", "TYPE", "DEFAULT", "RANGE", "FLAGS", "PARENT"});
    else
        rows.push_back({"LONG", "SHORT", "TYPE", "DEFAULT", "UNIT", "RANGE", "DESCRIPTION"});
    for (unsigned i = 0; i < attributes.length(); ++i) {
        const Tattribute& a = *attributes[i];
        // A compound of named children shows its defaults on the children's rows.
        bool shown = a.childCount() == 0 || compoundAsArray(a);
        std::string defaultText = shown ? wholeValueText(a, a.defaultData()) : std::string();
        if (defaultText.empty()) defaultText = "-";
        // Children are indented under their parent.
        unsigned depth = 0;
        for (const Tattribute* p = a.parent(); p; p = p->parent()) ++depth;
        const std::string name = std::string(2 * depth, ' ') + a.longName().str();
        TattributeDescription d = describeAttribute(*type, a);
        if (!options.details) {
            rows.push_back({name, a.shortName().str(), valueTypeName(a.valueType()), defaultText, d.unit, d.range, d.description});
            continue;
        }
        std::string flags;
        for (auto& flag : flagNames(a.flags())) flags += (flags.empty() ? "" : ",") + flag;
        rows.push_back({name, a.shortName().str(), a.tag().asString(), valueTypeName(a.valueType()), defaultText, d.range,
                        flags.empty() ? "-" : flags, a.parent() ? a.parent()->longName().str() : "-"});
    }
    printTable(rows);
    return kExitOk;
}

const TsubcommandRegistrar kRegistrar{{"nodes", "List the registered node types, or the attributes of one type",
                                       [](CLI::App& app) -> std::function<int()> {
                                           auto options = std::make_shared<Options>();
                                           app.add_option("type", options->type, "A node type: list its attributes");
                                           app.add_flag("--json", options->json, "Write JSON instead of a table");
                                           app.add_flag("--details", options->details,
                                                        "With TYPE: tags, flags and parents instead of descriptions");
                                           return [options] {
                                               return options->type.empty() ? listTypes(*options) : listAttributes(*options);
                                           };
                                       }}};
}  // namespace
