#include "settings/image_format.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace {

using F = TimageFormats;

// Where the file name ends in something other than the library's name (the
// IFF forms, Quicktime, the vector formats), the extension column says so.
constexpr TimageFormatInfo kFormats[] = {
    {F::kGIF, "GIF", "kGIF", "gif", "gif", false},
    {F::kSI, "SoftImage", "kSI", "pic", "pic", false},
    {F::kRLA, "RLA", "kRLA", "rla", "rla", false},
    {F::kTIFF, "Tiff", "kTIFF", "tif", "tif", false},
    {F::kTIFF16, "Tiff16", "kTIFF16", "tif", "tif", false},
    {F::kSGI, "SGI", "kSGI", "sgi", "sgi", false},
    {F::kORVAN, "Orvan PIX", "kORVAN", "als", "als", false},
    {F::kIFF, "Tovi IFF", "kIFF", F::kUnknownImf, "iff", false},
    {F::kJPEG, "JPEG", "kJPEG", "jpg", "jpg", false},
    {F::kEPS, "EPS", "kEPS", "eps", "eps", false},
    {F::kIFF16, "Tovi16 IFF", "kIFF16", F::kUnknownImf, "iff", false},
    {F::kCINEON, "Cineon", "kCINEON", "cin", "cin", false},
    {F::kQUANTEL, "Quantel", "kQUANTEL", "yuv", "yuv", false},
    {F::kSGI16, "SGI16", "kSGI16", "sgi", "sgi", false},
    {F::kTARGA, "Targa", "kTARGA", "tga", "tga", false},
    {F::kBMP, "Windows Bitmap", "kBMP", "bmp", "bmp", false},
    {F::kSGIMV, "SGI Movie", "kSGIMV", "mov", "mov", true},
    {F::kQT, "Quicktime", "kQT", "qt", "mov", true},
    {F::kAVI, "AVI", "kAVI", "avi", "avi", true},
    {F::kMACPAINT, "MacPaint", "kMACPAINT", "pntg", "pntg", false},
    {F::kPHOTOSHOP, "PSD", "kPHOTOSHOP", "psd", "psd", false},
    {F::kPNG, "PNG", "kPNG", "png", "png", false},
    {F::kQUICKDRAW, "QuickDraw", "kQUICKDRAW", "pict", "pict", false},
    {F::kQTIMAGE, "QuickTime Image", "kQTIMAGE", "qtif", "qtif", false},
    {F::kDDS, "DDS", "kDDS", "dds", "dds", false},
    {F::kPHOTOSHOPLAYERED, "PSD Layered", "kPHOTOSHOPLAYERED", "psdLayered", "psdLayered", false},
    // A plug-in or custom format has no extension of its own; the custom
    // extension of the render settings names its files.
    {F::kIMF, "IMF plugin", "kIMF", F::kUnknownImf, "", false},
    {F::kCustom, "Custom Image Format", "kCustom", F::kUnknownImf, "", false},
    {F::kSWF, "Macromedia SWF (swf)", "kSWF", F::kUnknownImf, "swf", true},
    {F::kAI, "Adobe Illustrator (ai)", "kAI", F::kUnknownImf, "ai", false},
    {F::kSVG, "SVG (svg)", "kSVG", F::kUnknownImf, "svg", true},
    {F::kSWFT, "Swift3DImporter (swft)", "kSWFT", F::kUnknownImf, "swft", true},
};

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

}  // namespace

std::span<const TimageFormatInfo> TimageFormats::sAll() { return kFormats; }

const TimageFormatInfo* TimageFormats::sFind(int number) {
    for (const TimageFormatInfo& f : kFormats)
        if (f.number == number) return &f;
    return nullptr;
}

const TimageFormatInfo* TimageFormats::sParse(const Tstring& text) {
    const std::string_view t = text.view();
    if (t.empty()) return nullptr;
    int number = 0;
    auto [end, error] = std::from_chars(t.data(), t.data() + t.size(), number);
    if (error == std::errc() && end == t.data() + t.size()) return sFind(number);
    // Keys and labels are unique; several formats share an extension, and the
    // first in the table (the 8-bit form) is the one meant.
    for (const TimageFormatInfo& f : kFormats)
        if (sameIgnoringCase(t, f.key) || sameIgnoringCase(t, f.label)) return &f;
    for (const TimageFormatInfo& f : kFormats)
        if ((std::string_view(f.imfName) != kUnknownImf && sameIgnoringCase(t, f.imfName)) || sameIgnoringCase(t, f.extension))
            return &f;
    return nullptr;
}

bool TimageFormats::sIsMultiframe(int number) {
    const TimageFormatInfo* f = sFind(number);
    return f && f->multiFrame;
}

Tstring TimageFormats::sImfName(int number) {
    const TimageFormatInfo* f = sFind(number);
    return f ? f->imfName : kUnknownImf;
}

Tstring TimageFormats::sExtension(int number) {
    const TimageFormatInfo* f = sFind(number);
    return f ? f->extension : "";
}
