#include "lights/light_fog.h"

#include "shading/sample.h"

void analyzeLightFog(TnonExtendedLightShape& light, const Tattribute& fogGeometry, TbitField64& mask) {
    if (!light.hasConnections(&fogGeometry)) {
        mask.clear(kItemFarPointWorld);
        mask.clear(kItemObjectType);
        return;
    }
    bool depthMap = false;
    light.getAttributeValue(&TnonExtendedLightShape::saUseDepthMapShadows(), &depthMap);
    if (depthMap) mask.set(kItemRayInstance);
}
