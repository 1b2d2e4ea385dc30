// The fields of a pixel format's property word (its high 32 bits). Lumora reads the class, planar, kind,
// float, alpha, layout and type fields directly from the word, so every format of the host table keeps
// them exactly as below; the order, linear-light and full-range fields are the host's own and only keep
// the property words of the table distinct. docs/pixel-formats.md has the same layout with its readers.
#pragma once

#include <cstdint>

namespace zelmediatypes {

// Class (bits 18-19). Every format of the table is "described": its other fields are meaningful.
// kPixelFormatProperties_Invalid and kPixelFormatProperties_Any use the other two class values.
constexpr std::uint32_t kPixelFormatPropertyMask_Class = 0x000C0000u;
constexpr std::uint32_t kPixelFormatClass_Described = 0x00040000u;

// Planar (bit 0): the 4:2:0 formats, whose components live in separate planes.
constexpr std::uint32_t kPixelFormatProperty_Planar = 0x00000001u;

// Sample type: the component kind (bits 1-3) together with the float bit (bit 4). Lumora derives the
// bytes per pixel, the texture format and the OpenCL image type from these four bits.
constexpr std::uint32_t kPixelFormatPropertyMask_Kind = 0x0000000Eu;
constexpr int kPixelFormatPropertyShift_Kind = 1;
constexpr std::uint32_t kPixelFormatProperty_Float = 0x00000010u;
constexpr std::uint32_t kPixelFormatPropertyMask_Sample =
    kPixelFormatPropertyMask_Kind | kPixelFormatProperty_Float;
constexpr std::uint32_t kPixelFormatSample_8u = 0x00000000u;   // kind 0: 8-bit unsigned
constexpr std::uint32_t kPixelFormatSample_10u = 0x00000002u;  // kind 1: 10-bit, packed (v210)
constexpr std::uint32_t kPixelFormatSample_15u = 0x00000006u;  // kind 3: 16-bit containers, 0..32768
constexpr std::uint32_t kPixelFormatSample_16f = 0x00000016u;  // kind 3 + float: half float
constexpr std::uint32_t kPixelFormatSample_32f = 0x0000001Au;  // kind 5 + float: 32-bit float

// Y'CbCr matrix (bit 5): set for ITU-R BT.709, clear for BT.601 and for RGB.
constexpr std::uint32_t kPixelFormatProperty_BT709 = 0x00000020u;

// Alpha type (bits 7-9).
constexpr std::uint32_t kPixelFormatPropertyMask_Alpha = 0x00000380u;
constexpr std::uint32_t kPixelFormatAlpha_Straight = 0x00000080u;       // 1
constexpr std::uint32_t kPixelFormatAlpha_Premultiplied = 0x00000100u;  // 2
constexpr std::uint32_t kPixelFormatAlpha_Ignored = 0x00000180u;        // 3: X formats, and no alpha at all

// Layout (bits 10-11).
constexpr std::uint32_t kPixelFormatPropertyMask_Layout = 0x00000C00u;
constexpr std::uint32_t kPixelFormatLayout_4444 = 0x00000000u;       // four components per pixel
constexpr std::uint32_t kPixelFormatLayout_422Packed = 0x00000400u;  // pairs of pixels share chroma
constexpr std::uint32_t kPixelFormatLayout_420Planar = 0x00000C00u;  // Y, U, V planes

// Type (bits 14-17): 0 for every single-plane format; 9-12 name the 4:2:0 families. The converter refuses
// types 1-8 and 15, so no format uses them.
constexpr std::uint32_t kPixelFormatPropertyMask_Type = 0x0003C000u;
constexpr int kPixelFormatPropertyShift_Type = 14;
constexpr std::uint32_t kPixelFormatType_MPEG2Frame = 9u << kPixelFormatPropertyShift_Type;
constexpr std::uint32_t kPixelFormatType_MPEG2Field = 10u << kPixelFormatPropertyShift_Type;
constexpr std::uint32_t kPixelFormatType_MPEG4Frame = 11u << kPixelFormatPropertyShift_Type;
constexpr std::uint32_t kPixelFormatType_MPEG4Field = 12u << kPixelFormatPropertyShift_Type;

// Component order (bits 20-23), the order of the components in memory. 0 is the library's GPU working
// layout (B, G, R, A), whose fixed property words leave every host-defined bit clear; the host's own
// formats all use a non-zero order, which also keeps host BGRA apart from the GPU formats.
constexpr std::uint32_t kPixelFormatPropertyMask_Order = 0x00F00000u;
constexpr std::uint32_t kPixelFormatOrder_Device = 0x00000000u;
constexpr std::uint32_t kPixelFormatOrder_BGRA = 0x00100000u;  // B, G, R, A/P/X
constexpr std::uint32_t kPixelFormatOrder_ARGB = 0x00200000u;  // A/P/X, R, G, B
constexpr std::uint32_t kPixelFormatOrder_VUYA = 0x00300000u;  // V, U, Y, A/P/X
constexpr std::uint32_t kPixelFormatOrder_UYVY = 0x00400000u;  // U, Y0, V, Y1
constexpr std::uint32_t kPixelFormatOrder_YUYV = 0x00500000u;  // Y0, U, Y1, V
constexpr std::uint32_t kPixelFormatOrder_V210 = 0x00600000u;  // v210 words: Cb Y Cr, Y Cb Y, Cr Y Cb, Y Cr Y
constexpr std::uint32_t kPixelFormatOrder_YUVPlanes = 0x00700000u;  // Y plane, U plane, V plane

// Linear light (bit 24): float RGB whose values are proportional to light, not gamma-coded.
constexpr std::uint32_t kPixelFormatProperty_Linear = 0x01000000u;
// Full range (bit 25): Y'CbCr using 0-255 for luma and chroma instead of video range (16-235, 16-240).
constexpr std::uint32_t kPixelFormatProperty_FullRange = 0x02000000u;

// Bit 6, bits 12-13 and bits 26-31 are reserved and clear in every format of the table.
constexpr std::uint32_t kPixelFormatPropertyMask_Reserved = 0xFC003040u;

// A described property word from its fields; `extra` takes the type, BT.709, planar, linear and
// full-range bits.
constexpr std::uint32_t MakeFormatProperties(std::uint32_t order, std::uint32_t sample, std::uint32_t alpha,
                                             std::uint32_t layout = kPixelFormatLayout_4444,
                                             std::uint32_t extra = 0) {
  return kPixelFormatClass_Described | order | sample | alpha | layout | extra;
}

}  // namespace zelmediatypes
