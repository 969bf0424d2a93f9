#pragma once
// The block coder of block-ordered texture files. A block is up to 32 by 32
// pixels of 1, 3 or 4 interleaved 8-bit channels. Each channel is scanned in
// serpentine order (even rows left to right, odd rows right to left) with the
// previous pixel as predictor, and coded as runs of equal pixels; all
// channels of a block share one Huffman tree and one bit stream, packed from
// the lowest bit of each byte upwards:
//
//   tree, channel 0, channel 1, channel 2, channel 3
//
// The tree is a pre-order walk: bit 1 is an internal node followed by its
// 0-branch and then its 1-branch, bit 0 a leaf followed by its 8-bit symbol.
// A tree that is a single leaf gives its symbol a code of no bits at all.
// A symbol is r * 8 + c: r further pixels repeat the value (0 to 31), c is
// the size category of the difference from the predictor. Its code is
// followed by c extra bits (one bit when c is 0). Multi-bit values (symbols,
// extra bits) are written lowest bit first.
#include <cstdint>

class TbotCodec {
public:
    static constexpr int kBlockSide = 32;
    static constexpr int kMaxTreeNodes = 508;
    // A coded block never exceeds this, so that a block plus its index
    // entry fits in 8192 bytes.
    static constexpr int kMaxBlockBytes = 8188;

    // Codes width * height packed pixels of `channels` bytes each into `out`.
    // Returns the byte count, or 0 when the block would need more than
    // `capacity` bytes (or the arguments make no block).
    static int codeBlock(const uint8_t* pixels, int width, int height, int channels, uint8_t* out,
                         int capacity = kMaxBlockBytes);

    // Decodes `size` bytes into width * height packed pixels. Returns null on
    // success, otherwise a short reason; a block whose bytes go on past its
    // last channel is refused too, so that a channel count that does not
    // match the data shows. Never reads outside [data, data +
    // size) nor writes outside the pixels, whatever the bytes hold. Uses no
    // heap memory.
    static const char* decodeBlock(const uint8_t* data, int size, int width, int height, int channels,
                                   uint8_t* pixels);

    // Size category of a difference already brought to -127..128.
    static int category(int delta);
};
