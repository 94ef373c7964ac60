#include <ApplicationServices/ApplicationServices.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "CoreGraphics/Image.h"

namespace {

constexpr auto kAlphaFirst = static_cast<CGBitmapInfo>(kCGImageAlphaFirst);

// What a provider's last reference told.
struct Told {
    int times = 0;
    const void* data = nullptr;
    std::size_t size = 0;
};

void Tell(void* info, const void* data, std::size_t size) {
    auto& told = *static_cast<Told*>(info);
    ++told.times;
    told.data = data;
    told.size = size;
}

class CGImageTest : public ::testing::Test {
  protected:
    CGImageTest()
        : bytes(4 * 3 * 2, 'x'),
          provider(CGDataProviderCreateWithData(&told, bytes.data(), bytes.size(), Tell)),
          space(CGColorSpaceCreateDeviceRGB()) {}
    ~CGImageTest() override {
        CGDataProviderRelease(provider);
        CGColorSpaceRelease(space);
    }

    CGImageRef Make(std::size_t width, std::size_t height, std::size_t bytesPerRow) {
        return CGImageCreate(width, height, 8, 32, bytesPerRow, space, kAlphaFirst, provider,
                             nullptr, false, kCGRenderingIntentDefault);
    }

    Told told;
    std::string bytes;
    CGDataProviderRef provider;
    CGColorSpaceRef space;
};

TEST_F(CGImageTest, AnImage_HasWhatItWasMadeOf) {
    const CGImageRef image = Make(3, 2, 12);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->Width(), 3u);
    EXPECT_EQ(image->Height(), 2u);
    EXPECT_EQ(image->BytesPerRow(), 12u);
    EXPECT_EQ(image->Bytes().data(), bytes.data());
    CGImageRelease(image);
}

TEST_F(CGImageTest, AnImage_KeepsItsProvider_WhichTellsWhenTheLastReferenceGoes) {
    const CGImageRef image = Make(3, 2, 12);
    CGDataProviderRelease(provider);
    provider = nullptr;
    CGColorSpaceRelease(space);
    space = nullptr;
    EXPECT_EQ(told.times, 0);
    CGImageRelease(image);
    EXPECT_EQ(told.times, 1);
    EXPECT_EQ(told.data, bytes.data());
    EXPECT_EQ(told.size, bytes.size());
}

TEST_F(CGImageTest, AProviderWithoutAReleaseFunction_LeavesTheBytesToTheCaller) {
    CGDataProviderRelease(CGDataProviderCreateWithData(nullptr, bytes.data(), 1, nullptr));
    EXPECT_EQ(CGDataProviderCreateWithData(nullptr, nullptr, 0, nullptr), nullptr);
}

TEST_F(CGImageTest, Release_OfNull_DoesNothing) {
    CGImageRelease(nullptr);
    CGColorSpaceRelease(nullptr);
    CGDataProviderRelease(nullptr);
}

TEST_F(CGImageTest, Create_WithTooFewBytes_IsNull) {
    EXPECT_EQ(Make(3, 3, 12), nullptr);
    EXPECT_EQ(Make(3, 2, 13), nullptr);
    EXPECT_EQ(Make(4, 2, 16), nullptr);
    EXPECT_EQ(Make(3, 2, 11), nullptr);
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
    EXPECT_EQ(Make(kMost, 1, 12), nullptr);
    EXPECT_EQ(Make(1, kMost, 12), nullptr);
    EXPECT_EQ(Make(kMost / 4 + 2, 1, 4), nullptr);
    EXPECT_EQ(Make(3, 1, kMost), nullptr);
    EXPECT_EQ(Make(3, 1u << 15, kMost), nullptr);
    EXPECT_EQ(Make(0, 2, 12), nullptr);
    EXPECT_EQ(Make(3, 0, 12), nullptr);
    // Of the last row only the pixels count.
    const CGImageRef image = Make(2, 2, 16);
    EXPECT_NE(image, nullptr);
    CGImageRelease(image);
}

TEST_F(CGImageTest, Create_OfWhatIsNotOffered_IsNull) {
    const auto make = [](std::size_t component, std::size_t pixel, CGColorSpaceRef colours,
                         std::uint32_t bitmap, CGDataProviderRef source, const CGFloat* decode) {
        const CGImageRef image =
            CGImageCreate(3, 2, component, pixel, 12, colours, static_cast<CGBitmapInfo>(bitmap),
                          source, decode, true, kCGRenderingIntentPerceptual);
        const bool made = image != nullptr;
        CGImageRelease(image);
        return made;
    };
    const CGFloat decode[8] = {0, 1, 0, 1, 0, 1, 0, 1};
    EXPECT_TRUE(make(8, 32, space, kCGImageAlphaFirst, provider, nullptr));
    EXPECT_FALSE(make(16, 32, space, kCGImageAlphaFirst, provider, nullptr));
    EXPECT_FALSE(make(8, 24, space, kCGImageAlphaFirst, provider, nullptr));
    EXPECT_FALSE(make(8, 32, nullptr, kCGImageAlphaFirst, provider, nullptr));
    EXPECT_FALSE(make(8, 32, space, kCGImageAlphaFirst, nullptr, nullptr));
    EXPECT_FALSE(make(8, 32, space, kCGImageAlphaFirst, provider, decode));
    for (const CGImageAlphaInfo alpha :
         {kCGImageAlphaNone, kCGImageAlphaPremultipliedLast, kCGImageAlphaPremultipliedFirst,
          kCGImageAlphaLast, kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipFirst,
          kCGImageAlphaOnly}) {
        EXPECT_FALSE(make(8, 32, space, alpha, provider, nullptr)) << alpha;
    }
    constexpr std::uint32_t kLittleEndian = 2 << 12;
    EXPECT_FALSE(make(8, 32, space, kCGImageAlphaFirst | kLittleEndian, provider, nullptr));
}

TEST_F(CGImageTest, OfAnotherReference_Stops) {
    EXPECT_DEATH(CGImageRelease(reinterpret_cast<CGImageRef>(provider)),
                 "CGImageRelease: expected a CGImage, got a CGDataProvider");
    EXPECT_DEATH(CGImageCreate(3, 2, 8, 32, 12, reinterpret_cast<CGColorSpaceRef>(provider),
                               kAlphaFirst, provider, nullptr, false, kCGRenderingIntentDefault),
                 "CGImageCreate: expected a CGColorSpace, got a CGDataProvider");
}

}  // namespace
