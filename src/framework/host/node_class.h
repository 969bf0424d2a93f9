#pragma once
// How a node class declares itself. A class is three short pieces:
//
//   struct TdnVSChecker : TdependNodeVS {            // its attribute table
//       TcolorAttribute color1{"color1", "c1", "CL1C"};
//       TattributeFloat contrast{"contrast", "co", "CONT"};
//       TdnVSChecker() { contrast.setNativeDefaultData(1.0); }
//       bool setupDependencies(TdependencyMatrix& m) override;
//   };
//   class TdnChecker : public TnodeClass<TdnChecker, TdnTx2D, TdnVSChecker> {
//   public:
//       static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnChecker", 501, "kChecker");
//       SN_ATTRIBUTE(Contrast, contrast)
//       SN_COLOR_ATTRIBUTE(Color1, color1)
//   protected:
//       bool vectorComputePlug(...) override;       // its compute
//   };
//   SN_REGISTER_NODE_CLASS(TdnChecker)              // in the .cpp
//
// Everything else every class has (sVsData, sTypeName, sIffTag,
// sInitializeClass, sCleanupClass, sMpSafe, construct, typeof, cast, apiType,
// the metaclass and the registration steps) comes from TnodeClass and
// TnodeRegistrar. A base class that adds a mixin (a second metaclass parent)
// says so with sMixinMetaclass() and castMixin(meta).
#include <cstdio>
#include <cstdlib>
#include <type_traits>

#include "framework/host/attribute.h"
#include "framework/host/depend_graph.h"
#include "framework/host/depend_node.h"

struct TnodeClassInfo {
    const char* className;
    unsigned apiType;
    const char* apiTypeName;
    const char* typeName = nullptr;
    const char* iffTag = "????";
    const char* classification = "";
    bool abstractClass = false;
    uint32_t registrationFlags = 0x20;
    bool mpSafe = true;
};

namespace node_class_detail {
constexpr TiffTag tagFromText(const char* t) {
    return TiffTag((uint32_t(uint8_t(t[0])) << 24) | (uint32_t(uint8_t(t[1])) << 16) | (uint32_t(uint8_t(t[2])) << 8) |
                   uint32_t(uint8_t(t[3])));
}
}  // namespace node_class_detail

template <class Self, class Base, class VS>
class TnodeClass : public Base {
public:
    using TdnVS = VS;

    static VS& sVsData() {
        if (!fsVs) {
            fsVs = new VS;
            TdependNodeVS::endConstruction();
            fsVs->fBaseDescription = [] { return static_cast<TdependNodeVS*>(&Base::sVsData()); };
            for (Tattribute* a : fsVs->ownAttributes())
                if (a->resourceName().isEmpty()) a->setResourceName(Tstring("n_") + sTypeName());
            // A clash is the class's own mistake: say so where its author
            // will see it, since the refused attribute is simply missing.
            if (!TdependNodeVS::initializeClass(*fsVs))
                for (const Tattribute* a : fsVs->clashes())
                    std::fprintf(stderr, "node type '%s': attribute '%s' ('%s') is refused: another attribute took the name\n",
                                 sTypeName().asC(), a->longName().asC(), a->shortName().asC());
        }
        return *fsVs;
    }
    static TdependNodeVS& sVsBaseData() { return sVsData(); }
    static const Tstring& sTypeName() {
        if (!fsTypeName) fsTypeName = new Tstring(Self::kInfo.typeName ? Self::kInfo.typeName : Self::kInfo.className);
        return *fsTypeName;
    }
    static const TiffTag& sIffTag() {
        if (!fsIffTag) fsIffTag = new TiffTag(node_class_detail::tagFromText(Self::kInfo.iffTag));
        return *fsIffTag;
    }
    static bool sInitializeClass() { return TdependNodeVS::initializeClass(sVsData()); }
    static bool sCleanupClass() {
        delete fsTypeName;
        fsTypeName = nullptr;
        delete fsIffTag;
        fsIffTag = nullptr;
        bool result = true;
        if (fsVs) {
            result = TdependNodeVS::cleanupClass(*fsVs);
            delete fsVs;
            fsVs = nullptr;
        }
        return result;
    }
    static bool sMpSafe() { return fsMpSafe; }
    static Tmetaclass* sMetaclass() {
        static Tmetaclass* slot = nullptr;
        static Tmetaclass meta(&slot, Self::kInfo.className, sizeof(Self), &constructInstance,
                               node_class_detail::tagFromText(Self::kInfo.iffTag).value(), Self::kInfo.abstractClass,
                               Base::sMetaclass(), mixinMetaclass());
        return &meta;
    }
    static Self* construct(Tmetaclass* meta) {
        if (!meta || !meta->istype(sMetaclass())) return nullptr;
        return static_cast<Self*>(static_cast<TdependNode*>(sMetaclass()->construct(meta)));
    }

    Tmetaclass* typeof() const override { return sMetaclass(); }
    void* cast(Tmetaclass* meta) override {
        if (meta == sMetaclass()) return static_cast<Self*>(this);
        return Base::cast(meta);
    }
    TdependNodeVS& vsData() const override { return sVsData(); }
    const Tstring& typeName() const override { return sTypeName(); }
    const TiffTag& iffTag() const override { return sIffTag(); }
    unsigned apiType() const override { return Self::kInfo.apiType; }
    const char* apiTypeString() const override { return Self::kInfo.apiTypeName; }

protected:
    TnodeClass() {
        sVsData();
        this->setNodeFlag(TdependNode::kMpSafeFlag, sMpSafe());
    }
    static inline VS* fsVs = nullptr;
    // The class-level byte that sMpSafe reads, fixed at build time.
    static inline const bool fsMpSafe = Self::kInfo.mpSafe;

private:
    static void* constructInstance() {
        if constexpr (std::is_abstract_v<Self>) {
            return nullptr;
        } else {
            return static_cast<TdependNode*>(new Self);
        }
    }
    static Tmetaclass* mixinMetaclass() {
        if constexpr (requires { Self::sMixinMetaclass(); }) {
            // Only the first class below the mixin names it as a parent; the
            // others reach it through their first parent.
            Tmetaclass* mixin = Self::sMixinMetaclass();
            return Base::sMetaclass()->istype(mixin) ? nullptr : mixin;
        }
        return nullptr;
    }
    static inline Tstring* fsTypeName = nullptr;
    static inline TiffTag* fsIffTag = nullptr;
};

// Facts a registered type keeps for listings.
struct TnodeTypeFacts {
    const char* classification;
    unsigned apiType;
    const char* apiTypeName;
    bool (*mpSafe)();
};

// The registration steps of one class, run by a static object in the class's
// .cpp: metaclass, graph type entry, registration, classification. Its
// destruction at unload undoes them.
template <class Self>
class TnodeRegistrar {
public:
    TnodeRegistrar() {
        Tmetaclass* meta = Self::sMetaclass();
        fType = new TdependNodeMetaClass(meta, &Self::sVsBaseData, &Self::sTypeName, &Self::sIffTag, &Self::sInitializeClass,
                                         &Self::sCleanupClass, Self::kInfo.registrationFlags);
        fType->fClassification = Self::kInfo.classification;
        fType->fApiType = Self::kInfo.apiType;
        fType->fApiTypeName = Self::kInfo.apiTypeName;
        fType->fMpSafe = &Self::sMpSafe;
        if (!TdependGraph::registerNodeType(fType)) {
            std::fprintf(stderr, "shadenet: node type \"%s\" registered twice\n", Self::sTypeName().asC());
            std::abort();
        }
        if (*fType->fClassification) TclassificationMgr::registerClassification(Self::sTypeName(), fType->fClassification);
    }
    ~TnodeRegistrar() {
        if (fType->fRegistered) TdependGraph::deregisterNodeType(fType);
        if (*fType->fClassification) TclassificationMgr::deregisterClassification(Self::sTypeName());
        delete fType;
    }
    TnodeRegistrar(const TnodeRegistrar&) = delete;
    TnodeRegistrar& operator=(const TnodeRegistrar&) = delete;

private:
    TdependNodeMetaClass* fType;
};

#define SN_REGISTER_NODE_CLASS(Class) static const TnodeRegistrar<Class> s##Class##Registrar;

// Accessors of one attribute: the static sa<Name>() is safe before the class
// is initialised, the member attr<Name>() reads the class pointer directly.
#define SN_ATTRIBUTE(Name, member)                        \
    static auto& sa##Name() { return sVsData().member; } \
    auto& attr##Name() const { return fsVs->member; }

// A compound with its children (see framework/host/attribute_groups.h).
#define SN_TRIPLE_ATTRIBUTE(Name, member, A, B, C) \
    SN_ATTRIBUTE(Name, member.whole)               \
    SN_ATTRIBUTE(Name##A, member.c0)               \
    SN_ATTRIBUTE(Name##B, member.c1)               \
    SN_ATTRIBUTE(Name##C, member.c2)
#define SN_COLOR_ATTRIBUTE(Name, member) SN_TRIPLE_ATTRIBUTE(Name, member, R, G, B)
#define SN_VECTOR_ATTRIBUTE(Name, member) SN_TRIPLE_ATTRIBUTE(Name, member, X, Y, Z)
#define SN_PAIR_ATTRIBUTE(Name, member, A, B) \
    SN_ATTRIBUTE(Name, member.whole)          \
    SN_ATTRIBUTE(Name##A, member.c0)          \
    SN_ATTRIBUTE(Name##B, member.c1)
