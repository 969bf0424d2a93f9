#include "framework/host/dag.h"

#include <algorithm>
#include <cmath>
#include <functional>

SN_REGISTER_NODE_CLASS(Ttransform)
SN_REGISTER_NODE_CLASS(TobjectSet)

TdagNode::~TdagNode() = default;

void TdagNode::aboutToDelete() {
    for (TdagNode* p : std::vector<TdagNode*>(fParents)) p->removeChild(this);
    for (TdagNode* c : std::vector<TdagNode*>(fChildren)) removeChild(c);
}

bool TdagNode::addChild(TdagNode* child) {
    if (!child || child == this || std::count(fChildren.begin(), fChildren.end(), child)) return false;
    // Refuse a cycle: this node must not lie below the child.
    std::function<bool(const TdagNode*)> below = [&](const TdagNode* n) {
        if (n == child) return true;
        for (const TdagNode* p : n->fParents)
            if (below(p)) return true;
        return false;
    };
    if (below(this)) return false;
    fChildren.push_back(child);
    child->fParents.push_back(this);
    return true;
}

bool TdagNode::removeChild(TdagNode* child) {
    auto it = std::find(fChildren.begin(), fChildren.end(), child);
    if (it == fChildren.end()) return false;
    fChildren.erase(it);
    child->fParents.erase(std::find(child->fParents.begin(), child->fParents.end(), this));
    return true;
}

std::vector<TdagPath> TdagNode::allPaths() {
    std::vector<TdagPath> out;
    if (fParents.empty()) {
        out.emplace_back(std::vector<TdagNode*>{this});
        return out;
    }
    for (TdagNode* p : fParents)
        for (const TdagPath& up : p->allPaths()) {
            std::vector<TdagNode*> nodes = up.nodes();
            nodes.push_back(this);
            out.emplace_back(std::move(nodes));
        }
    return out;
}

Tmatrix Ttransform::localMatrix() {
    T3Float t, r, s;
    getAttributeValue(&attrTranslate(), &t);
    getAttributeValue(&attrRotate(), &r);
    getAttributeValue(&attrScale(), &s);
    constexpr double kDegrees = 3.14159265358979323846 / 180.0;
    auto rotation = [](int axis, double angle) {
        Tmatrix m;
        double c = std::cos(angle), sn = std::sin(angle);
        int a = (axis + 1) % 3, b = (axis + 2) % 3;
        m.m[a][a] = c;
        m.m[a][b] = sn;
        m.m[b][a] = -sn;
        m.m[b][b] = c;
        return m;
    };
    return Tmatrix::scaling(s.x, s.y, s.z) * rotation(0, r.x * kDegrees) * rotation(1, r.y * kDegrees) *
           rotation(2, r.z * kDegrees) * Tmatrix::translation(t.x, t.y, t.z);
}

Tmatrix TdagPath::inclusiveMatrix() const {
    Tmatrix m;
    for (auto it = fNodes.rbegin(); it != fNodes.rend(); ++it) m = m * (*it)->localMatrix();
    return m;
}

unsigned TdagPath::instanceNumber() const {
    if (fNodes.empty()) return 0;
    auto paths = fNodes.back()->allPaths();
    for (unsigned i = 0; i < paths.size(); ++i)
        if (paths[i] == *this) return i;
    return 0;
}

std::string TdagPath::fullPathName() const {
    std::string s;
    for (TdagNode* n : fNodes) s += "|" + n->name().str();
    return s;
}

bool TobjectSet::addMember(const TdagPath& path) {
    if (!path.isValid() || isMember(path)) return false;
    fMembers.push_back(path);
    return true;
}

bool TobjectSet::removeMember(const TdagPath& path) {
    auto it = std::find(fMembers.begin(), fMembers.end(), path);
    if (it == fMembers.end()) return false;
    fMembers.erase(it);
    return true;
}

bool TobjectSet::isMember(const TdagPath& path) const { return std::find(fMembers.begin(), fMembers.end(), path) != fMembers.end(); }

void TobjectSet::moveItemsToSet(const std::vector<TdagPath>& paths, const std::vector<TobjectSet*>& sets) {
    for (size_t i = 0; i < paths.size() && i < sets.size(); ++i) {
        TobjectSet* target = sets[i];
        if (TdependGraph* g = target->graph())
            for (TdependNode* n : g->nodes())
                if (n != target && n->typeof()->istype(TobjectSet::sMetaclass()) &&
                    n->typeof()->istype(target->typeof()))
                    static_cast<TobjectSet*>(n)->removeMember(paths[i]);
        target->addMember(paths[i]);
    }
}
