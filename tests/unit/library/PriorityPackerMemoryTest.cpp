// The packer's use of memory; in the program that replaces operator new.
#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/unit/library/AllocationFailure.h"

#include <gtest/gtest.h>

namespace Vantor {

using Test::AllocationFailure;

TEST(PriorityPackerMemory, packingWhatWaits_allocatesNothing)
{
    PriorityPacker packer(1024);
    const unsigned char payload[20] = {};
    for (unsigned int i = 0; i < 100; ++i) {
        for (const int type : {5, 6}) { // 6 has high priority
            packer.addStructData(payload, sizeof payload, static_cast<PacketType>(type));
            packer.addStructData(payload, sizeof payload, static_cast<PacketType>(type), i);
        }
    }
    ClientLcdBitmap bits(128, 64, 8);
    packer.drawBitmapData(bits);
    ClientLcdBitmap words(1, 1, 24);
    words.lcd = 1;
    words.encoded = 1;
    words.buffer = {0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0};
    words.encodedSize = 8;
    packer.drawBitmapData(words);

    unsigned int packed = 0;
    const AllocationFailure failure(1);
    for (int packets = 0; packets < 50; ++packets) {
        packer.clearData();
        packed += packer.prepareNextPacket();
    }
    EXPECT_FALSE(failure.hasHappened());
    EXPECT_FALSE(packer.hasMoreData());
    EXPECT_GT(packed, 400u);
}

} // namespace Vantor
