#pragma once
// The image file formats a render can write: their numbers (a scene-file
// constant, stored in the imageFormat attribute), labels and keys, the name
// the image file library knows them by and the extension their files get.
#include <span>

#include "framework/host/tstring.h"

struct TimageFormatInfo {
    int number;
    const char* label;      // as shown to the user
    const char* key;        // the enumeration key
    const char* imfName;    // name for the image file library, "UNKNOWN" when it has none
    const char* extension;  // what the file name ends in; empty when the format has no fixed one
    bool multiFrame;        // one file holds every frame
};

class TimageFormats {
public:
    enum Tformat : int {
        kGIF = 0,
        kSI = 1,
        kRLA = 2,
        kTIFF = 3,
        kTIFF16 = 4,
        kSGI = 5,
        kORVAN = 6,
        kIFF = 7,
        kJPEG = 8,
        kEPS = 9,
        kIFF16 = 10,
        kCINEON = 11,
        kQUANTEL = 12,
        kSGI16 = 13,
        kTARGA = 19,
        kBMP = 20,
        kSGIMV = 21,
        kQT = 22,
        kAVI = 23,
        kMACPAINT = 30,
        kPHOTOSHOP = 31,
        kPNG = 32,
        kQUICKDRAW = 33,
        kQTIMAGE = 34,
        kDDS = 35,
        kPHOTOSHOPLAYERED = 36,
        kIMF = 50,
        kCustom = 51,
        kSWF = 60,
        kAI = 61,
        kSVG = 62,
        kSWFT = 63,
    };
    static constexpr const char* kUnknownImf = "UNKNOWN";

    // Every format, in the order the user sees them.
    static std::span<const TimageFormatInfo> sAll();
    // The format of a number, or null.
    static const TimageFormatInfo* sFind(int number);
    // The format named by a number ("7"), key ("kIFF"), label ("Tovi IFF"),
    // image-library name or extension ("iff"); letter case is ignored. Null
    // when nothing matches.
    static const TimageFormatInfo* sParse(const Tstring& text);

    static bool sIsMultiframe(int number);
    static Tstring sImfName(int number);
    static Tstring sExtension(int number);
};
