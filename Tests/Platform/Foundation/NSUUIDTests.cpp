#include "Platform/Foundation/NSUUID.h"

#include <gtest/gtest.h>

#include <set>

namespace {

constexpr const char* kText = "0123ABCD-4567-89EF-FEDC-BA9876543210";

TEST(NSUUID, ReadsAndWritesItsText)
{
    const auto uuid = ns::UUID::withString(kText);
    ASSERT_TRUE(uuid);
    EXPECT_EQ(uuid->uuidString(), kText);
    EXPECT_EQ(uuid->bytes()[0], 0x01);
    EXPECT_EQ(uuid->bytes()[3], 0xCD);
    EXPECT_EQ(uuid->bytes()[15], 0x10);
}

TEST(NSUUID, ReadsLowerCaseAndWritesUpperCase)
{
    const auto uuid = ns::UUID::withString("0123abcd-4567-89ef-fedc-ba9876543210");
    ASSERT_TRUE(uuid);
    EXPECT_EQ(uuid->uuidString(), kText);
    EXPECT_EQ(uuid, ns::UUID::withString(kText));
}

TEST(NSUUID, RefusesAnyOtherText)
{
    for (const char* text :
         {"", "0123ABCD", "0123ABCD-4567-89EF-FEDC-BA987654321", "0123ABCD-4567-89EF-FEDC-BA98765432100",
          "0123ABCD456789EFFEDCBA9876543210", "0123ABCD-4567-89EF-FEDC_BA9876543210",
          "{123ABCD-4567-89EF-FEDC-BA987654321}", "0123ABCG-4567-89EF-FEDC-BA9876543210",
          "01-3ABCD-4567-89EF-FEDC-BA9876543210", " 123ABCD-4567-89EF-FEDC-BA9876543210"})
        EXPECT_FALSE(ns::UUID::withString(text)) << text;
}

TEST(NSUUID, RandomOnesAreOfVersionFourAndDiffer)
{
    std::set<std::string> texts;
    for (int i = 0; i < 100; ++i) {
        const auto uuid = ns::UUID::random();
        EXPECT_EQ(uuid.bytes()[6] >> 4, 4);
        EXPECT_EQ(uuid.bytes()[8] >> 6, 2);
        texts.insert(uuid.uuidString());
    }
    EXPECT_EQ(texts.size(), 100U);
}

TEST(NSUUID, ComparesByItsBytes)
{
    const auto first = ns::UUID::withString(kText);
    const auto second = ns::UUID::withString("0123ABCD-4567-89EF-FEDC-BA9876543211");
    EXPECT_NE(first, second);
    EXPECT_LT(*first, *second);
}

}  // namespace
