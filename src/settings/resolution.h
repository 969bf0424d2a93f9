#pragma once
// TdnResolution: the size and shape of the rendered image.
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "settings/settings_attributes.h"

struct TdnVSResolution : TdependNodeVS {
    SN_SETTING(TattributeInt32, width, "w")
    SN_SETTING(TattributeInt32, height, "h")
    SN_SETTING(TattributeFloat, pixelAspect, "pa")
    SN_SETTING(TattributeBoolean, aspectLock, "al")
    SN_SETTING(TattributeFloat, deviceAspectRatio, "dar")
    SN_SETTING(TattributeBoolean, lockDeviceAspectRatio, "ldar")
    SN_SETTING(TattributeFloat, dotsPerInch, "dpi")
    SN_SETTING(TattributeBoolean, oddFieldFirst, "off")
    SN_SETTING(TattributeEnum, fields, "fld")
    SN_SETTING(TattributeEnum, zerothScanline, "zsl")
    SN_SETTING(TattributeEnum, imageSizeUnits, "isu")
    SN_SETTING(TattributeEnum, pixelDensityUnits, "pdu")

    TdnVSResolution();
};

class TdnResolution : public TnodeClass<TdnResolution, TdependNode, TdnVSResolution> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnResolution", 518, "kResolution");

    enum { kNoFields = 0, kOddFields = 1, kEvenFields = 2, kAllFields = 3, kAllFieldsSeparate = 4 };
    enum { kAtTop = 0, kAtBottom = 1 };
    enum { kImagePixels = 0, kImageInches = 1, kImageCm = 2, kImageMm = 3, kImagePoints = 4, kImagePicas = 5 };
    enum { kDotsPerInch = 0, kDotsPerCm = 1 };

    SN_ATTRIBUTE(Width, width)
    SN_ATTRIBUTE(Height, height)
    SN_ATTRIBUTE(PixelAspect, pixelAspect)
    SN_ATTRIBUTE(DeviceAspectRatio, deviceAspectRatio)
    SN_ATTRIBUTE(Fields, fields)
};
