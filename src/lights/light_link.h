#pragma once
// TdnLightLink: the scene's store of light links. Each of its four compounds
// is a multi of (light side, object side) message pairs: element i says that
// the light (or set of lights) connected to the light side goes with the
// object (or set, or shading group) connected to the object side. The
// connections are the data; nothing is stored by value.
#include <functional>
#include <vector>

#include "framework/host/node_class.h"
#include "framework/node_registry.h"

struct TdnVSLightLink : TdependNodeVS {
    // One multi compound with its two message children.
    struct Pair {
        Pair(const char* longName, const char* shortName, const char* tag, const char* lightLong, const char* lightShort,
             const char* lightTag, const char* objectLong, const char* objectShort, const char* objectTag);
        TattributeCompound whole;
        TattributeMessage light;
        TattributeMessage object;
    };
    Pair link{"link", "lnk", "LINK", "light", "llnk", "LLNK", "object", "olnk", "OLNK"};
    Pair ignore{"ignore", "ign", "IGNR", "lightIgnored", "lign", "LIGN", "objectIgnored", "oign", "OIGN"};
    Pair shadowLink{"shadowLink", "slnk", "SLNK", "shadowLight", "sllk", "SLLK", "shadowObject", "solk", "SOLK"};
    Pair shadowIgnore{"shadowIgnore", "sign", "SIGN", "shadowLightIgnored", "slig", "SLIG", "shadowObjectIgnored", "soig",
                      "SOIG"};
};

class TdnLightLink : public TnodeClass<TdnLightLink, TdependNode, TdnVSLightLink> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnLightLink", 1046, "kLightLink");

    SN_ATTRIBUTE(Link, link.whole)
    SN_ATTRIBUTE(Light, link.light)
    SN_ATTRIBUTE(Object, link.object)
    SN_ATTRIBUTE(Ignore, ignore.whole)
    SN_ATTRIBUTE(LightIgnored, ignore.light)
    SN_ATTRIBUTE(ObjectIgnored, ignore.object)
    SN_ATTRIBUTE(ShadowLink, shadowLink.whole)
    SN_ATTRIBUTE(ShadowLight, shadowLink.light)
    SN_ATTRIBUTE(ShadowObject, shadowLink.object)
    SN_ATTRIBUTE(ShadowIgnore, shadowIgnore.whole)
    SN_ATTRIBUTE(ShadowLightIgnored, shadowIgnore.light)
    SN_ATTRIBUTE(ShadowObjectIgnored, shadowIgnore.object)

    // The (light, object) children of one of the four compounds; null for
    // any other attribute.
    static const TdnVSLightLink::Pair* pairOf(const Tattribute* compound);

    // The first index at or above `start` of the compound `attr` at which
    // neither side is connected, and the first at which either side is
    // (-1 when there is none).
    int firstFreeIndexStartingFrom(int start, const Tattribute* attr) const;
    int firstUsedIndexStartingFrom(int start, const Tattribute* attr) const;

    // The nodes connected to the two sides of element `index`; null when
    // that side is not connected.
    TdependNode* lightAt(const Tattribute* attr, int index) const;
    TdependNode* objectAt(const Tattribute* attr, int index) const;
    // Connects `light`'s and `object`'s message plugs to element `index`.
    bool connectPair(const Tattribute* attr, int index, TdependNode* light, TdependNode* object);

    // Removes the pairs of all four compounds that have only one side left.
    void cleanUp();
    // Moves every complete pair of `other` to free indices of this node.
    void assimilate(TdnLightLink* other);

    // Clients hear of link changes: the first kind when the object side is a
    // shading group, the second for any other object.
    using RelationshipClient = std::function<void(TdnLightLink& link, TdependNode* object)>;
    void setRelationshipClients(RelationshipClient groups, RelationshipClient others);
    // A set named on an object side gained or lost members.
    void setMembershipChanged(TdependNode* set);
    // A node named by a pair is going away.
    void serverDeleted(TdependNode* node);
    unsigned relationshipChanges() const { return fChanges; }

    // Written to a scene only while it holds a link.
    bool shouldBeWritten() const;

    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

    // The link node a group or light is set up with: the first of the graph,
    // made when there is none.
    static TdnLightLink* active(TdependGraph& graph);

private:
    void cleanUp(const Tattribute* attr);
    void assimilate(TdnLightLink* other, const Tattribute* attr);
    void relationshipsChanged(TdependNode* object);
    void relationshipsChangedNonSG(TdependNode* object);
    void tellClients(TdependNode* object);
    void pairChanged(const Tplug& mine, const Tplug& other, bool asSource);
    bool names(TdependNode* node) const;
    std::vector<int> usedIndices(const Tattribute* attr) const;

    RelationshipClient fGroupClient, fOtherClient;
    unsigned fChanges = 0;
};
