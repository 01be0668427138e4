// Topology identifier, level and protocol enumerations.
#include "IgpCommon/Identifiers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "tests/support/TextHelpers.h"

namespace {

using namespace Routing::IgpCommon;
using testsupport::messageOf;
using testsupport::parse;
using testsupport::text;

TEST(IgpMultiTopologyIdTest, TextIsTheBareDecimalNumberAndOnlyTheStandardTopologyIsFalse) {
    for (std::uint16_t v : {0, 2, 4095, 65535}) {
        IgpMultiTopologyId id(1);
        id.valueIs(v);
        EXPECT_EQ(parse<IgpMultiTopologyId>(Kest::strep(id)).value(), v);
    }
    EXPECT_EQ(Kest::strep(IgpMultiTopologyId(2)), "2");
    EXPECT_THROW(parse<IgpMultiTopologyId>("65536"), Kest::RangeException);
    EXPECT_THROW(parse<IgpMultiTopologyId>("5 "), Kest::ParseException);
    EXPECT_THROW(parse<IgpMultiTopologyId>("x"), Kest::ParseException);
    std::ostringstream os;
    os << std::hex << IgpMultiTopologyId(255);
    EXPECT_EQ(os.str(), "255");

    EXPECT_FALSE(IgpMultiTopologyId());
    EXPECT_FALSE(IgpMultiTopologyId(IgpMultiTopologyId::defaultValue));
    EXPECT_TRUE(IgpMultiTopologyId(2));
    EXPECT_LT(IgpMultiTopologyId(0x7fff), IgpMultiTopologyId(0x8000));
    EXPECT_TRUE(IgpMultiTopologyId::isEq(IgpMultiTopologyId(3), IgpMultiTopologyId(3)));
    EXPECT_FALSE(IgpMultiTopologyId::isEq(IgpMultiTopologyId(3), IgpMultiTopologyId(4)));
}

TEST(IgpLevelTest, NamesAndNumbersConvertBothWaysAndUnknownOnesRaiseTheirOwnErrors) {
    const IgpLevel levels[] = {igpLevelNone, igpLevelIsisLevel1, igpLevelIsisLevel2};
    std::string names;
    for (unsigned n = 0; n < 3; ++n) {
        EXPECT_EQ(IgpLevelInstance(n), levels[n]);
        EXPECT_EQ(IgpLevelInstance(stringValue(levels[n])), levels[n]);
        EXPECT_EQ(parse<IgpLevel>(Kest::strep(levels[n])), levels[n]);
        names += text(levels[n]) + " ";
    }
    EXPECT_EQ(names, "igpLevelNone igpLevelIsisLevel1 igpLevelIsisLevel2 ");
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IgpLevelInstance(3u); }),
              "3 is no enumerator of Routing::IgpCommon::IgpLevel");
    EXPECT_EQ(messageOf<Kest::ParseException>([] { IgpLevelInstance(std::string("igpLevelIsisLevel3")); }),
              "\"igpLevelIsisLevel3\" is no enumerator of Routing::IgpCommon::IgpLevel");
    EXPECT_THROW(parse<IgpLevel>("igpLevelIsisLevel1 "), Kest::ParseException);
}

TEST(IgpProtoTest, NamesAndNumbersConvertBothWaysAndZeroIsNoProtocol) {
    const IgpProto protos[] = {igpProtoIsis, igpProtoOspf2, igpProtoOspf3};
    std::string names;
    for (unsigned n = 1; n <= 3; ++n) {
        EXPECT_EQ(IgpProtoInstance(n), protos[n - 1]);
        EXPECT_EQ(IgpProtoInstance(stringValue(protos[n - 1])), protos[n - 1]);
        names += text(protos[n - 1]) + " ";
    }
    EXPECT_EQ(names, "igpProtoIsis igpProtoOspf2 igpProtoOspf3 ");
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IgpProtoInstance(0u); }),
              "0 is no enumerator of Routing::IgpCommon::IgpProto");
    EXPECT_THROW(IgpProtoInstance(4u), Kest::RangeException);
    EXPECT_THROW(IgpProtoInstance(std::string("igpProtoIsIs")), Kest::ParseException);
    EXPECT_THROW(IgpProtoInstance(std::string("")), Kest::ParseException);
    EXPECT_EQ(stringValue(static_cast<IgpProto>(9)), "9");  // a number that names no enumerator
}

TEST(IgpProtoTest, SequenceToValueReadsOneNameAndStopsAfterItOrRefusesWithoutMovingOrStoring) {
    Kest::CharRange r(std::string_view("igpProtoOspf2, igpLevelIsisLevel1)"));
    IgpProto out = igpProtoIsis;
    EXPECT_EQ(sequenceToValue(r, &out), igpProtoOspf2);
    EXPECT_EQ(out, igpProtoOspf2);
    EXPECT_EQ(r.rest(), ", igpLevelIsisLevel1)");
    r.expect(", ");
    EXPECT_EQ(sequenceToValue(r, static_cast<IgpLevel*>(nullptr)), igpLevelIsisLevel1);
    EXPECT_EQ(r.rest(), ")");

    Kest::CharRange longer(std::string_view("igpProtoIsisX"));
    EXPECT_EQ(
        messageOf<Kest::ParseException>([&] { sequenceToValue(longer, &out); }),
        "expected an enumerator of Routing::IgpCommon::IgpProto at offset 0 (before \"igpProtoIsisX\")");
    EXPECT_EQ(out, igpProtoOspf2);
    EXPECT_EQ(longer.offset(), 0u);
}

}  // namespace
