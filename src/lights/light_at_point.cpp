#include "lights/light_at_point.h"

#include "lights/render_light.h"

TlightAtPoint::TlightAtPoint(const TDNarray& lights) {
    for (unsigned i = 0; i < lights.length(); ++i)
        if (TdependNode* node = lights[i]; node && node->typeof()->istype(TrenderLightShape::sMetaclass()))
            fLights.push_back(static_cast<TrenderLightShape*>(node));
}

unsigned TlightAtPoint::lightAtPoint(const T3Float& point, _lightAtPointInformation* info) const {
    for (unsigned k = 0; k < fLights.size(); ++k) {
        TrenderLightShape* light = fLights[k];
        light->setAttributeValue(&TrenderLightShape::saPointCamera(), &point);
        info[k].light = light;
        light->getAttributeValue(&TlightShape::saLightData(), &info[k].data);
    }
    return numberOfLights();
}

unsigned TlightAtPoint::lightAtPoint(const T3Float* points, unsigned count, _lightAtPointInformation* info) const {
    for (unsigned p = 0; p < count; ++p) lightAtPoint(points[p], info + size_t(p) * fLights.size());
    return numberOfLights();
}
