// The dump sink (Umbo::DumpContext and its printf) and the one-at-a-time byte mixer.
#include "IgpCommon/platform/Umbo.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>

namespace {

using Umbo::DumpContext;

TEST(UmboDumpContext, EveryKindCountsEveryByteAndPrintfTakesLongTextThroughTheHeap) {
    std::ostringstream os;
    const Poldo::Ptr<DumpContext const> toStream = DumpContext::dumpContextIs(os);
    const Poldo::Ptr<DumpContext const> collect = DumpContext::dumpContextIs();
    const Poldo::Ptr<DumpContext const> discard = DumpContext::discardingDumpContextIs();
    for (const auto& ctx : {toStream, collect, discard}) {
        ctx->write("abc");
        ctx->write(std::string_view("de\nxx", 3));
        EXPECT_EQ(ctx->bytesWritten(), 6u);
    }
    EXPECT_EQ(os.str(), "abcde\n");
    EXPECT_EQ(toStream->text() + discard->text(), "") << "only a collecting context keeps a copy";
    EXPECT_EQ(collect->text(), "abcde\n");

    // The formatting is the C library's; the buffer around it is ours.
    for (std::size_t n : {1019u, 1020u, 70000u}) {  // around the 1024-byte stack buffer
        std::string text(n, 'x');
        for (std::size_t i = 0; i < n; i += 97) {
            text[i] = static_cast<char>('a' + i % 26);  // so a shifted or truncated copy shows
        }
        std::ostringstream out;
        Umbo::_objDumpPrintf(DumpContext::dumpContextIs(out), "%*c%s<", 3, '>', text.c_str());
        EXPECT_EQ(out.str(), "  >" + text + "<") << n;
    }
}

std::uint32_t oneAtATime(std::string_view s, std::uint32_t start = 0) {
    Umbo::HashMix h(start);
    for (char c : s) {
        h.mix(static_cast<std::uint8_t>(c));
    }
    EXPECT_EQ(h.value(), h.value()) << "reading the value leaves the state alone";
    return h.value();
}

TEST(UmboHashMix, PublishedValuesOfJenkinsOneAtATime) {
    EXPECT_EQ(oneAtATime("a"), 0xca2e9442u);
    EXPECT_EQ(oneAtATime("The quick brown fox jumps over the lazy dog"), 0x519e91f5u);
    EXPECT_EQ(oneAtATime(""), 0u);
    EXPECT_EQ(oneAtATime("", 1), 0x48009u);  // the start state goes through the finish: 9 + (9 << 15)
}

}  // namespace
