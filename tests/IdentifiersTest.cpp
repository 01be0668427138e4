// Topology identifier, level and protocol enumerations.
#include "IgpCommon/Identifiers.h"

#include <gtest/gtest.h>

#include "support/TextHelpers.h"

#include <cstdint>
#include <sstream>
#include <string>

namespace {

using namespace Routing::IgpCommon;

using testsupport::messageOf;

TEST(IgpMultiTopologyIdTest, ReadsWritesAndRoundTripsTheBareNumber) {
    const auto read = [](const char* text) {
        return Kest::strepToValue(std::string(text), static_cast<IgpMultiTopologyId*>(nullptr));
    };
    EXPECT_EQ(read("5").value(), 5);
    EXPECT_EQ(read("65535").value(), 65535);
    EXPECT_EQ(Kest::strep(IgpMultiTopologyId(2)), "2");
    for (std::uint16_t v : {0, 2, 4095, 65535}) {
        EXPECT_EQ(read(Kest::strep(IgpMultiTopologyId(v)).c_str()), IgpMultiTopologyId(v));
    }
    EXPECT_THROW(read("65536"), Kest::RangeException);
    EXPECT_THROW(read("5 "), Kest::ParseException);
    EXPECT_THROW(read("x"), Kest::ParseException);
    std::ostringstream os;
    os << std::hex << IgpMultiTopologyId(255);
    EXPECT_EQ(os.str(), "255");
}

TEST(IgpMultiTopologyIdTest, OrdersByValueAndIsTrueWhenNotTheStandardTopology) {
    EXPECT_FALSE(IgpMultiTopologyId());
    EXPECT_FALSE(IgpMultiTopologyId(IgpMultiTopologyId::defaultValue));
    EXPECT_TRUE(IgpMultiTopologyId(2));
    EXPECT_LT(IgpMultiTopologyId(2), IgpMultiTopologyId(0x8000));
    EXPECT_LT(IgpMultiTopologyId(0x7fff), IgpMultiTopologyId(0x8000));
    EXPECT_TRUE(IgpMultiTopologyId::isEq(IgpMultiTopologyId(3), IgpMultiTopologyId(3)));
    EXPECT_FALSE(IgpMultiTopologyId::isEq(IgpMultiTopologyId(3), IgpMultiTopologyId(4)));
    IgpMultiTopologyId id;
    id.valueIs(4000);
    EXPECT_EQ(id.value(), 4000);
}

TEST(IgpLevelTest, NamesAndNumbersConvertBothWays) {
    EXPECT_EQ(IgpLevelInstance(0u), igpLevelNone);
    EXPECT_EQ(IgpLevelInstance(1u), igpLevelIsisLevel1);
    EXPECT_EQ(IgpLevelInstance(2u), igpLevelIsisLevel2);
    EXPECT_EQ(IgpLevelInstance(std::string("igpLevelIsisLevel2")), igpLevelIsisLevel2);
    EXPECT_EQ(stringValue(igpLevelIsisLevel1), "igpLevelIsisLevel1");
    EXPECT_EQ(stringValue(igpLevelNone), "igpLevelNone");
    for (IgpLevel l : {igpLevelNone, igpLevelIsisLevel1, igpLevelIsisLevel2}) {
        EXPECT_EQ(IgpLevelInstance(stringValue(l)), l);
        EXPECT_EQ(Kest::strepToValue(Kest::strep(l), static_cast<IgpLevel*>(nullptr)), l);
    }
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IgpLevelInstance(3u); }),
              "3 is no enumerator of Routing::IgpCommon::IgpLevel");
    EXPECT_EQ(messageOf<Kest::ParseException>([] { IgpLevelInstance(std::string("igpLevelIsisLevel3")); }),
              "\"igpLevelIsisLevel3\" is no enumerator of Routing::IgpCommon::IgpLevel");
    std::ostringstream os;
    os << igpLevelIsisLevel2;
    EXPECT_EQ(os.str(), "igpLevelIsisLevel2");
}

TEST(IgpProtoTest, NamesAndNumbersConvertBothWaysAndZeroIsNoProtocol) {
    static_assert(igpProtoIsis == 1);
    EXPECT_EQ(IgpProtoInstance(1u), igpProtoIsis);
    EXPECT_EQ(IgpProtoInstance(3u), igpProtoOspf3);
    EXPECT_EQ(IgpProtoInstance(std::string("igpProtoOspf2")), igpProtoOspf2);
    for (IgpProto p : {igpProtoIsis, igpProtoOspf2, igpProtoOspf3}) {
        EXPECT_EQ(IgpProtoInstance(stringValue(p)), p);
        EXPECT_EQ(IgpProtoInstance(static_cast<unsigned>(p)), p);
    }
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IgpProtoInstance(0u); }),
              "0 is no enumerator of Routing::IgpCommon::IgpProto");
    EXPECT_THROW(IgpProtoInstance(4u), Kest::RangeException);
    EXPECT_THROW(IgpProtoInstance(std::string("igpProtoIsIs")), Kest::ParseException);
    EXPECT_THROW(IgpProtoInstance(std::string("")), Kest::ParseException);
    // A number that names no enumerator is written as its digits.
    EXPECT_EQ(stringValue(static_cast<IgpProto>(9)), "9");
    std::ostringstream os;
    os << igpProtoOspf3 << ' ' << igpProtoIsis;
    EXPECT_EQ(os.str(), "igpProtoOspf3 igpProtoIsis");
}

TEST(IgpProtoTest, SequenceToValueReadsOneNameAndStopsAfterIt) {
    Kest::CharRange r(std::string_view("igpProtoOspf2, igpLevelIsisLevel1)"));
    IgpProto out = igpProtoIsis;
    EXPECT_EQ(sequenceToValue(r, &out), igpProtoOspf2);
    EXPECT_EQ(out, igpProtoOspf2);
    EXPECT_EQ(r.rest(), ", igpLevelIsisLevel1)");
    r.expect(", ");
    EXPECT_EQ(sequenceToValue(r, static_cast<IgpLevel*>(nullptr)), igpLevelIsisLevel1);
    EXPECT_EQ(r.rest(), ")");
}

TEST(IgpProtoTest, SequenceToValueRefusesAnUnknownNameWithoutMovingOrStoring) {
    Kest::CharRange r(std::string_view("xx igpProtoIsis"));
    r.expect("xx ");
    Kest::CharRange longer(std::string_view("igpProtoIsisX"));
    IgpProto out = igpProtoOspf3;
    EXPECT_EQ(sequenceToValue(r, &out), igpProtoIsis);
    EXPECT_EQ(
        messageOf<Kest::ParseException>([&] { sequenceToValue(longer, &out); }),
        "expected an enumerator of Routing::IgpCommon::IgpProto at offset 0 (before \"igpProtoIsisX\")");
    EXPECT_EQ(out, igpProtoIsis);
    EXPECT_EQ(longer.offset(), 0u);
    EXPECT_THROW(Kest::strepToValue(std::string("igpLevelIsisLevel1 "), static_cast<IgpLevel*>(nullptr)),
                 Kest::ParseException);
}

}  // namespace
