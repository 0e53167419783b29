// SPDX-License-Identifier: MIT
#include "kxbase/UUID.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <set>
#include <thread>
#include <vector>

#include "kxbase/Exceptions.h"
#include "support/Thrown.h"

namespace kxbase {
namespace {

constexpr unsigned char kBytes[16] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                      0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
constexpr const wchar_t* kText = L"00112233-4455-6677-8899-aabbccddeeff";

TEST(UUID, TextAndBytesHaveTheSameOrder) {
    const UUID id = UUID::FromBytes(kBytes);
    EXPECT_EQ(id.ToWString(), kText);
    EXPECT_TRUE(std::ranges::equal(id.ToBytes(), kBytes));
    EXPECT_EQ(UUID(std::wstring(kText)), id);
}

TEST(UUID, AcceptsEitherCaseAndBraces) {
    const UUID id = UUID::FromBytes(kBytes);
    EXPECT_EQ(UUID(L"00112233-4455-6677-8899-AABBCCDDEEFF"), id);
    EXPECT_EQ(UUID(L"00112233-4455-6677-8899-aAbBcCdDeEfF"), id);
    EXPECT_EQ(UUID(L"{00112233-4455-6677-8899-aabbccddeeff}"), id);
}

TEST(UUID, RefusesOtherTexts) {
    const wchar_t* const rows[] = {
        L"",
        L"x",
        L"{}",
        L"00112233445566778899aabbccddeeff",
        L"00112233-4455-6677-8899-aabbccddeef",
        L"00112233-4455-6677-8899-aabbccddeefff",
        L"00112233-4455-6677-8899-aabbccddeefg",
        L"0011223-34455-6677-8899-aabbccddeeff",
        L"00112233_4455_6677_8899_aabbccddeeff",
        L"{00112233-4455-6677-8899-aabbccddeeff",
        L"00112233-4455-6677-8899-aabbccddeeff}",
        L"{00112233-4455-6677-8899-aabbccddeeff)",
        L" 00112233-4455-6677-8899-aabbccddeeff",
        L"00112233-4455-6677-8899-aabbccddeeff ",
        L"-0112233-4455-6677-8899-aabbccddeeff",
        L"００112233-4455-6677-8899-aabbccddeeff",
    };
    for (const wchar_t* text : rows) {
        SCOPED_TRACE(testing::Message() << text);
        EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>([&] { static_cast<void>(UUID{std::wstring(text)}); }),
                  "Not a UUID");
    }
}

TEST(UUID, DefaultIsZero) {
    EXPECT_TRUE(UUID().IsZero());
    EXPECT_EQ(UUID(), UUID::Generate_Zeros());
    EXPECT_EQ(UUID().ToWString(), L"00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(UUID().ToBytes(), (std::array<unsigned char, 16>{}));
    EXPECT_FALSE(UUID::FromBytes(kBytes).IsZero());
}

TEST(UUID, GeneratedOnesAreRandomVersion4) {
    std::set<UUID> seen;
    std::array<unsigned char, 16> ones{};
    std::array<unsigned char, 16> zeros{};
    for (int i = 0; i < 1000; ++i) {
        const UUID id = UUID::Generate();
        EXPECT_TRUE(seen.insert(id).second);
        const auto bytes = id.ToBytes();
        EXPECT_EQ(bytes[6] >> 4, 4);
        EXPECT_EQ(bytes[8] >> 6, 2);
        for (size_t k = 0; k < 16; ++k) {
            ones[k] = static_cast<unsigned char>(ones[k] | bytes[k]);
            zeros[k] = static_cast<unsigned char>(zeros[k] | static_cast<unsigned char>(~bytes[k]));
        }
    }
    // In a thousand draws every free bit was 1 once and 0 once.
    for (size_t k = 0; k < 16; ++k) {
        EXPECT_EQ(ones[k], k == 6 ? 0x4f : k == 8 ? 0xbf : 0xff) << k;
        EXPECT_EQ(zeros[k], k == 6 ? 0xbf : k == 8 ? 0x7f : 0xff) << k;
    }
}

TEST(UUID, ThreadsGenerateDifferentOnes) {
    std::vector<std::vector<UUID>> lists(4);
    {
        std::vector<std::thread> threads;
        for (auto& list : lists)
            threads.emplace_back([&list] {
                for (int i = 0; i < 500; ++i)
                    list.push_back(UUID::Generate());
            });
        for (auto& thread : threads)
            thread.join();
    }
    std::set<UUID> all;
    for (const auto& list : lists)
        all.insert(list.begin(), list.end());
    EXPECT_EQ(all.size(), 2000u);
}

TEST(UUID, OrderIsThatOfTheText) {
    const UUID low(L"00000000-0000-0000-0000-0000000000ff");
    const UUID high(L"01000000-0000-0000-0000-000000000000");
    EXPECT_LT(low, high);
    EXPECT_NE(low, high);
}

RC_GTEST_PROP(UUID, TextOfAnyBytesReadsBack, ()) {
    const auto bytes =
        *rc::gen::container<std::vector<unsigned char>>(16, rc::gen::arbitrary<unsigned char>());
    const UUID id = UUID::FromBytes(bytes.data());
    RC_ASSERT(id.ToWString().size() == 36u);
    RC_ASSERT(UUID(id.ToWString()) == id);
    RC_ASSERT(std::ranges::equal(id.ToBytes(), bytes));
}

}  // namespace
}  // namespace kxbase
