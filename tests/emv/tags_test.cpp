// The table of tags knows what the library knows.
#include "tools/emv/tags.h"

#include "engine/data/tag_table.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace qaven::emv;

TEST(Tags, AllOfTheLibrarysTableHaveAName) {
    int count = 0;
    for (int at = 0; at < kTagTableSize; ++count) {
        std::uint32_t tag = gcTagName[at++];
        if ((tag & 0x1FU) == 0x1F) {
            tag = tag << 8U | gcTagName[at++];
        }
        ++at; // the format letter
        EXPECT_NE(find_tag(tag), nullptr) << std::hex << tag;
    }
    EXPECT_EQ(count, 160);
}

TEST(Tags, HaveTheConstructedBitIfAndOnlyIfTheyAreTemplates) {
    for (const KnownTag& tag : all_tags()) {
        const std::uint32_t first = tag.tag > 0xFF ? tag.tag >> 8U : tag.tag;
        EXPECT_EQ((first & 0x20U) != 0, tag.form == Form::kTemplate) << std::hex << tag.tag;
        EXPECT_FALSE(tag.name.empty()) << std::hex << tag.tag;
    }
}

TEST(Tags, ThatNobodyKnowsAreSaidToBeUnknown) {
    EXPECT_EQ(find_tag(0x9F7E), nullptr);
    EXPECT_EQ(tag_name(0x9F7E), "unknown object");
}

} // namespace
