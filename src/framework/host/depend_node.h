#pragma once
// TdependNode: a node of the dependency graph, with its class description
// (TdependNodeVS), its values, its connections and scalar evaluation.
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "framework/host/array.h"
#include "framework/host/attribute.h"
#include "framework/host/data_block.h"
#include "framework/host/metaclass.h"
#include "framework/host/plug.h"
#include "framework/host/tstring.h"

class TdependGraph;
class TdependNode;
class TDGcommand {};  // undoable graph edit handed to merge; edits apply at once here

// The evaluation context; only the normal (current time) one exists here.
class TdgContext {
public:
    static const TdgContext& normal();
};

// Dirty propagation message: the plug that changed and what it makes dirty.
class TmsgDirty {
public:
    explicit TmsgDirty(const Tplug& plug) : fPlug(plug) {}
    const Tplug& plug() const { return fPlug; }
    // Attributes of the receiving node that become dirty; a node's
    // setDependentsDirty may add or remove bits.
    TbitFieldFixedN& affected() { return fAffected; }

private:
    Tplug fPlug;
    TbitFieldFixedN fAffected;
};

// Description of a node class: its attribute list and dependency matrix,
// built once by initializeClass from the class's own appendAttributes and
// setupDependencies, which first call the base class's.
class TdependNodeVS {
public:
    TdependNodeVS();
    virtual ~TdependNodeVS();
    TdependNodeVS(const TdependNodeVS&) = delete;
    TdependNodeVS& operator=(const TdependNodeVS&) = delete;

    virtual bool appendAttributes(TattributeList& list);
    virtual bool setupDependencies(TdependencyMatrix& matrix);

    // False when the class could not take every attribute it declares (a
    // name taken twice), then and on every later call.
    static bool initializeClass(TdependNodeVS& vs);
    static bool cleanupClass(TdependNodeVS& vs);
    bool initialized() const { return fInitialized; }
    // The attributes refused because another of the class took the name.
    const std::vector<const Tattribute*>& clashes() const { return fClashes; }

    const TattributeList& attributes() const { return fList; }
    const TdependencyMatrix& dependencies() const { return fMatrix; }
    // The attributes this class adds, in declaration order.
    const std::vector<Tattribute*>& ownAttributes() const { return fOwn; }
    // Called by every attribute constructed while this description is being
    // built, so that members join in declaration order.
    static void noteConstructedAttribute(Tattribute* a);
    // Ends the collection of members; the class mechanism calls it right
    // after a description is constructed.
    static void endConstruction();

    // The base class's description, or null for the root.
    TdependNodeVS* (*fBaseDescription)() = nullptr;

protected:
    // Declares that each input affects each output, compound children included.
    void affects(TdependencyMatrix& m, std::initializer_list<const Tattribute*> inputs,
                 std::initializer_list<const Tattribute*> outputs);

private:
    friend class Tattribute;
    TattributeList fList;
    TdependencyMatrix fMatrix;
    std::vector<Tattribute*> fOwn;
    std::vector<const Tattribute*> fClashes;
    bool fInitialized = false;
    bool fComplete = false;
};

// What the graph knows of a node type.
class TdependNodeMetaClass {
public:
    using VsFunction = TdependNodeVS& (*)();
    using NameFunction = const Tstring& (*)();
    using TagFunction = const TiffTag& (*)();
    using BoolFunction = bool (*)();

    TdependNodeMetaClass(Tmetaclass* meta, VsFunction vs, NameFunction typeName, TagFunction iffTag,
                         BoolFunction initialize, BoolFunction cleanup, uint32_t flags)
        : fMeta(meta), fVs(vs), fTypeName(typeName), fIffTag(iffTag), fInitialize(initialize), fCleanup(cleanup), fFlags(flags) {}

    Tmetaclass* fMeta;
    VsFunction fVs;
    NameFunction fTypeName;
    TagFunction fIffTag;
    BoolFunction fInitialize;
    BoolFunction fCleanup;
    uint32_t fFlags;
    bool fRegistered = false;  // set by the graph while the type is registered
    // Class facts kept beside the metaclass for listings.
    const char* fClassification = nullptr;
    unsigned fApiType = 0;
    const char* fApiTypeName = "";
    bool (*fMpSafe)() = nullptr;
};

class TdependNode {
public:
    // Bit of the flag word: compute may run on many threads at once.
    static constexpr uint32_t kMpSafeFlag = 0x10000000;

    TdependNode();
    virtual ~TdependNode();
    TdependNode(const TdependNode&) = delete;
    TdependNode& operator=(const TdependNode&) = delete;

    static Tmetaclass* sMetaclass();
    static TdependNodeVS& sVsData();
    virtual Tmetaclass* typeof() const { return sMetaclass(); }
    virtual void* cast(Tmetaclass* meta);
    virtual TdependNodeVS& vsData() const;
    virtual const Tstring& typeName() const;
    virtual const TiffTag& iffTag() const;
    virtual unsigned apiType() const { return 4; }
    virtual const char* apiTypeString() const { return "kDependencyNode"; }

    // Compute entries. The scalar one passes the current element on to the
    // vector one; nodes put their arithmetic in vectorComputePlug.
    virtual bool computePlug(const Tplug& plug, TdataBlock& block);
    static const Tattribute& saMessage();
    virtual bool setDependentsDirty(TmsgDirty& msg);
    virtual void setDirty(TmsgDirty&) {}
    virtual bool legalConnection(const Tplug& mine, const Tplug& other, bool asSource, bool& isLegal) const;
    virtual bool legalDisconnection(const Tplug& mine, const Tplug& other, bool asSource, bool& isLegal) const;
    virtual void connectionMade(const Tplug& mine, const Tplug& other, bool asSource);
    virtual void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource);
    virtual int merge(TDGcommand&, TdependNode* other, TDNarray&, TDNarray&);
    virtual void aboutToDelete() {}
    virtual bool aboutToDuplicate(TDNsortedArray&) { return true; }

    // Attributes: inherited first, then the class's, then dynamic ones.
    unsigned attributeCount() const;
    const Tattribute* attribute(unsigned index) const;
    const Tattribute* attribute(const Tstring& name) const;
    unsigned staticAttributeCount() const;
    // Adds an attribute to this node only; the node takes ownership.
    bool addDynamicAttribute(std::unique_ptr<Tattribute> a);
    unsigned localDynamicAttrs() const { return unsigned(fDynamic.size()); }
    const TdependencyMatrix& dependencies() const { return vsData().dependencies(); }

    const Tstring& name() const { return fName; }
    TdependGraph* graph() const { return fGraph; }
    uint32_t nodeFlags() const { return fNodeFlags; }
    void setNodeFlag(uint32_t bit, bool on) { fNodeFlags = on ? (fNodeFlags | bit) : (fNodeFlags & ~bit); }
    bool isMpSafe() const { return fNodeFlags & kMpSafeFlag; }

    // Values. getAttributeValue pulls: connected inputs are read from their
    // source and computed outputs are computed when dirty. `index` is the
    // logical element for array attributes.
    bool getAttributeValue(const Tattribute* a, void* value, unsigned index = 0);
    bool setAttributeValue(const Tattribute* a, const void* value, unsigned index = 0);
    // Pointer to the stored value after a pull; valid until the next edit.
    const void* valuePointer(const Tattribute* a, unsigned index = 0);
    // The stored value without evaluation.
    void* storage(const Tattribute* a, unsigned index = 0);
    unsigned getExistingMultiAttributeIndices(const Tplug& plug, TuInt32Array& indices) const;
    bool hasMultiElement(const Tattribute* a, unsigned index) const;
    void removeMultiElement(const Tattribute* a, unsigned index);
    bool isDirty(const Tattribute* a) const;
    // Marks `a` dirty and everything downstream of it.
    void markDirty(const Tattribute* a);
    void markClean(const Tattribute* a);

    // Connections of this node's plugs.
    const Tplug* sourceOf(const Tplug& destination) const;
    void destinationsOf(const Tplug& source, std::vector<Tplug>& out) const;
    bool hasConnections(const Tattribute* a) const;
    void allIncoming(std::vector<std::pair<Tplug, Tplug>>& out) const;  // (source, destination)

protected:
    // The vector compute entry: elements first .. first + count - 1 of the
    // block. Reached by the shading engine through TDNdispatchCompute.
    virtual bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);

private:
    friend class TDNdispatchCompute;
    friend class TdependGraph;
    friend class TdgDataBlock;
    friend class Tplug;
    using Key = std::pair<uint16_t, int>;  // attribute index, logical index
    struct Slot {
        // The attribute whose values these are: the destructor runs after
        // the derived class is gone and can no longer look it up.
        const Tattribute* attribute = nullptr;
        std::vector<unsigned char> single;
        std::map<unsigned, std::vector<unsigned char>> elements;
        bool constructed = false;
    };
    Slot& slotFor(const Tattribute* root);
    unsigned char* rootStorage(const Tattribute* root, int index, bool create);
    void destroyValues();
    void refresh(const Tattribute* a, int index);
    void propagateDirty(const Tattribute* a);
    void ensureDirtyBits();
    static Key keyOf(const Tplug& p) { return {p.attribute()->index(), p.index()}; }

    Tstring fName;
    TdependGraph* fGraph = nullptr;
    uint32_t fNodeFlags = 0;
    std::vector<std::unique_ptr<Tattribute>> fDynamic;
    std::vector<Slot> fSlots;
    std::vector<uint8_t> fDirty;
    std::map<Key, Tplug> fIncoming;
    std::multimap<Key, Tplug> fOutgoing;
    int fEvaluating = 0;
};

// The host's scalar data block: one element, values held by the node.
class TdgDataBlock final : public TdataBlock {
public:
    TdgDataBlock(TdependNode& node, int index = Tplug::kNoIndex) : fNode(node), fIndex(index) {}
    TdataHandle outputValue(const Tattribute& a) override;
    TdataHandle outputValue(const Tplug& p) override;
    TdataHandle inputValue(const Tattribute& a) override;
    TdataHandle inputValue(const Tplug& p) override;
    using TdataBlock::inputValue;
    using TdataBlock::outputValue;
    bool isClean(const Tattribute& a) const override { return !fNode.isDirty(&a); }
    unsigned multiIndices(const Tattribute& a, unsigned* indices, unsigned capacity) const override;
    TdataHandle elementValue(const Tattribute& a, unsigned logicalIndex) override;

protected:
    TdataHandle inputRun(const Tattribute& a, unsigned, unsigned) override { return inputValue(a); }
    TdataHandle outputRun(const Tattribute& a, unsigned, unsigned) override { return outputValue(a); }
    void markClean(const Tattribute& a) override { fNode.markClean(&a); }

private:
    TdataHandle handleOn(const Tattribute& a, void* value);
    TdependNode& fNode;
    int fIndex;
};

// Reads the value of a plug under a context into the handle's storage.
class TmsgPlugValue {
public:
    TmsgPlugValue(const Tplug& plug, TdataHandle& handle, const TdgContext& context);
    bool send();

private:
    Tplug fPlug;
    TdataHandle& fHandle;
};

class TmsgSetPlugValue {
public:
    TmsgSetPlugValue(const Tplug& plug, const void* value) : fPlug(plug), fValue(value) {}
    bool send();

private:
    Tplug fPlug;
    const void* fValue;
};
