// Images written to and read back from real files.
#include <fstream>

#include <gtest/gtest.h>

#include <kestrel/osg/Image.h>

#include "TestUtil.h"

using namespace osg;

TEST(Image, PngRoundTripKeepsEveryByte) {
    TempDir dir;
    std::vector<UInt8> px(4 * 3 * 4);
    for (std::size_t i = 0; i < px.size(); ++i)
        px[i] = static_cast<UInt8>(i * 7 + 3);
    auto img = Image::create();
    ASSERT_TRUE(img->set(4, 3, 4, Image::UInt8Type, px.data()));
    std::string path = dir.file("rgba.png");
    ASSERT_TRUE(img->write(path)) << img->getLastError();

    auto back = Image::create();
    ASSERT_TRUE(back->read(path)) << back->getLastError();
    EXPECT_EQ(back->getWidth(), 4u);
    EXPECT_EQ(back->getHeight(), 3u);
    EXPECT_EQ(back->getChannels(), 4u);
    EXPECT_TRUE(back->hasAlphaChannel());
    EXPECT_EQ(back->getPixels(), px);
    EXPECT_EQ(back->getName(), path);
}

TEST(Image, ExrRoundTripKeepsFloatValues) {
    TempDir dir;
    std::vector<float> px = {0.f, 0.5f, 1.f, 2.25f, -1.f, 1000.f, 0.125f, 3.f,  4.f,
                             5.f, 6.f,  7.f, 8.f,   9.f,  10.f,   11.f,   12.f, 13.f};
    auto img = Image::create();
    ASSERT_TRUE(img->set(3, 2, 3, Image::Float32Type, px.data()));
    std::string path = dir.file("hdr.exr");
    ASSERT_TRUE(img->write(path)) << img->getLastError();

    auto back = Image::create();
    ASSERT_TRUE(back->read(path)) << back->getLastError();
    ASSERT_EQ(back->getDataType(), Image::Float32Type);
    ASSERT_EQ(back->getChannels(), 3u);
    EXPECT_FALSE(back->hasAlphaChannel());
    for (UInt32 y = 0; y < 2; ++y)
        for (UInt32 x = 0; x < 3; ++x)
            for (UInt32 c = 0; c < 3; ++c)
                EXPECT_EQ(back->getComponent(x, y, c), px[(y * 3 + x) * 3 + c]);
}

TEST(Image, SixteenBitGreyTiffRoundTrip) {
    TempDir dir;
    std::vector<UInt16> px = {0, 1, 256, 4095, 65535, 32768};
    auto img = Image::create();
    ASSERT_TRUE(img->set(3, 2, 1, Image::UInt16Type, px.data()));
    ASSERT_TRUE(img->write(dir.file("grey.tif"))) << img->getLastError();
    auto back = Image::create();
    ASSERT_TRUE(back->read(dir.file("grey.tif"))) << back->getLastError();
    ASSERT_EQ(back->getDataType(), Image::UInt16Type);
    ASSERT_EQ(back->getChannels(), 1u);
    EXPECT_EQ(back->getPixels(), img->getPixels());
    EXPECT_FLOAT_EQ(back->getComponent(1, 1, 0), 1.f);
}

TEST(Image, UnreadableFilesFailWithAMessage) {
    TempDir dir;
    auto img = Image::create();
    EXPECT_FALSE(img->read(dir.file("missing.png")));
    EXPECT_FALSE(img->getLastError().empty());
    std::ofstream(dir.file("garbage.png")) << "not an image at all";
    EXPECT_FALSE(img->read(dir.file("garbage.png")));
    EXPECT_FALSE(img->isValid());
    EXPECT_FALSE(img->write(dir.file("empty.png"))); // no pixels
    EXPECT_FALSE(img->set(0, 5, 3, Image::UInt8Type));
    EXPECT_FALSE(img->set(5, 5, 5, Image::UInt8Type));
}
