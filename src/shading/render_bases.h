#pragma once
// The abstract classes a renderer implements to drive the shading engine:
// its render groups (one object as shaded), geometry managers, deep raster
// and (in ray_sampler.h) ray sampler. Their operations are given by role.
#include "framework/host/bit_field.h"
#include "shading/ray_sampler.h"
#include "shading/shading_types.h"

class Tsample;
class TgeoManagerBase;
class TdagPath;

class TrenderGroupBase {
public:
    virtual ~TrenderGroupBase() = default;
    // The path of the shape the group renders, for nodes that tell objects
    // apart by their shape (the shading switches); null when it renders no
    // shape of the graph.
    virtual const TdagPath* dagPath() const { return nullptr; }
    virtual void reserved1() {}
    // The object's number, which indexes per-object tables.
    virtual unsigned objectNumber() const = 0;
    virtual const TgeoManagerBase* geometryManager() const = 0;
    // The object's "receiveShadows" value.
    virtual bool receiveShadows() const = 0;
    const void* objectId() const { return this; }
};

class TgeoManagerBase {
public:
    virtual ~TgeoManagerBase() = default;
    virtual void reserved0() const {}
    virtual void reserved1() const {}
};

class TbaseDeepRaster {
public:
    virtual ~TbaseDeepRaster() = default;
    // Receives a shaded batch.
    virtual void receiveSamples(TSEoption option, TrenderGroupBase* group, Tsample** samples, unsigned count) = 0;
    // The sample items the raster wants filled.
    virtual TbitField64 wantedItems() const { return TbitField64(); }
};

