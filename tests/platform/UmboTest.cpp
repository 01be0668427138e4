// The dump sink (Umbo::DumpContext and its printf) and the one-at-a-time byte mixer.
#include "IgpCommon/platform/Umbo.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>

namespace {

using Umbo::DumpContext;
using Umbo::HashMix;

TEST(UmboDumpContext, StreamCollectingAndDiscardingContextsCountEveryByte) {
    std::ostringstream os;
    const Poldo::Ptr<DumpContext const> toStream = DumpContext::dumpContextIs(os);
    toStream->write("abc");
    toStream->write("");
    toStream->write("de");
    EXPECT_EQ(os.str(), "abcde");
    EXPECT_EQ(toStream->bytesWritten(), 5u);
    EXPECT_EQ(toStream->text(), "");  // a stream context keeps no copy

    const Poldo::Ptr<DumpContext const> collect = DumpContext::dumpContextIs();
    collect->write("line 1\n");
    collect->write(std::string_view("line 2\nxx", 7));
    EXPECT_EQ(collect->text(), "line 1\nline 2\n");
    EXPECT_EQ(collect->bytesWritten(), 14u);

    const Poldo::Ptr<DumpContext const> discard = DumpContext::discardingDumpContextIs();
    discard->write(std::string(10000, 'x'));
    discard->write("y");
    EXPECT_EQ(discard->bytesWritten(), 10001u);
    EXPECT_EQ(discard->text(), "");
}

TEST(UmboDumpContext, PrintfPadsStarCWithBlanksFormatsNumbersAndTakesLongTextThroughTheHeap) {
    const Poldo::Ptr<DumpContext const> ctx = DumpContext::dumpContextIs();
    // "%*c" always prints the character itself, so widths 0 and 1 look alike.
    for (int width = 0; width < 3; ++width) {
        Umbo::_objDumpPrintf(ctx, "%*c%s|", width, ' ', "a");
    }
    Umbo::_objDumpPrintf(ctx, "%*c%u:%04x:%-3d|%lld", 4, '-', 42u, 0xabu, 7, -9000000000LL);
    EXPECT_EQ(ctx->text(), " a| a|  a|   -42:00ab:7  |-9000000000");
    EXPECT_EQ(ctx->bytesWritten(), 37u);
    // Lengths around the stack buffer, and far beyond it.
    for (std::size_t n : {1022u, 1023u, 1024u, 1025u, 70000u}) {
        std::string text(n, 'x');
        for (std::size_t i = 0; i < n; i += 97) {
            text[i] = static_cast<char>('a' + i % 26);  // so a shifted or truncated copy shows
        }
        std::ostringstream os;
        Umbo::_objDumpPrintf(DumpContext::dumpContextIs(os), "%*c%s<", 3, '>', text.c_str());
        EXPECT_EQ(os.str(), "  >" + text + "<") << n;
    }
}

std::uint32_t oneAtATime(std::string_view s, std::uint32_t start = 0) {
    HashMix h(start);
    for (char c : s) {
        h.mix(static_cast<std::uint8_t>(c));
    }
    return h.value();
}

TEST(UmboHashMix, KnownValuesAndValueLeavesTheStateAlone) {
    // Published values of Jenkins' one-at-a-time hash.
    EXPECT_EQ(oneAtATime("a"), 0xca2e9442u);
    EXPECT_EQ(oneAtATime("The quick brown fox jumps over the lazy dog"), 0x519e91f5u);
    EXPECT_EQ(oneAtATime(""), 0u);
    // By hand from the definition: no bytes, state 1; 1+8 = 9; 9 ^ (9 >> 11) = 9; 9 + (9 << 15) = 0x48009.
    EXPECT_EQ(HashMix(1).value(), 0x48009u);
    // One byte 1 into state 0: 1; 1 + 1024 = 0x401; ^ (0x401 >> 6 = 0x10) = 0x411;
    // then 0x411 + 0x2088 = 0x2499; ^ (0x2499 >> 11 = 4) = 0x249d; + 0x124e8000 = 0x124ea49d.
    EXPECT_EQ(oneAtATime(std::string_view("\x01", 1)), 0x124ea49du);
    EXPECT_EQ(oneAtATime(std::string_view("\0", 1)), 0u);
    EXPECT_NE(oneAtATime("x", 0), oneAtATime("x", 1));

    HashMix h;
    h.mix('a');
    const std::uint32_t afterA = h.value();
    EXPECT_EQ(h.value(), afterA);
    h.mix('b');
    EXPECT_EQ(h.value(), oneAtATime("ab"));
    EXPECT_NE(oneAtATime("ab"), oneAtATime("ba"));
}

}  // namespace
