#include "Kelvadrome/gtk/tray/TrayImage.h"

#include <gtest/gtest.h>

namespace kelvadrome {
namespace {

TEST(TrayImage, premultipliedPixelsBecomeStraightOnesInNetworkOrder) {
    const std::uint32_t rows[] = {0x80402000, 0xff010203, 0xdeadbeef, // the third is padding
        0x00000000, 0x01010101, 0xdeadbeef};
    const auto pixmap = fromPremultiplied(2, 2, 12, reinterpret_cast<const unsigned char*>(rows));
    const std::string expected("\x80\x80\x40\x00\xff\x01\x02\x03\x00\x00\x00\x00\x01\xff\xff\xff", 16);
    EXPECT_EQ(pixmap, (TrayItem::Pixmap{2, 2, expected}));
}

} // namespace
} // namespace kelvadrome
