#include <gtest/gtest.h>

#include "core/support/plist.h"

namespace holdenmere {
namespace {

TEST(PlistWriter, EveryKindOfValueReadsBackTheSame) {
    plist::Value value{plist::Dictionary{
        {"Label", plist::Value{std::string("com.example.agent & <friends>")}},
        {"RunAtLoad", plist::Value{true}},
        {"KeepAlive", plist::Value{false}},
        {"Nice", plist::Value{std::int64_t{-5}}},
        {"StartInterval", plist::Value{std::int64_t{3600}}},
        {"Ratio", plist::Value{2.5}},
        {"Since", plist::Value{Date{794045700.0}}},
        {"Blob", plist::Value{plist::Data{std::string("\x00\x01\xFF", 3)}}},
        {"ProgramArguments", plist::Value{plist::Array{plist::Value{std::string("/bin/agent")},
                                                       plist::Value{std::string("--gate")}}}},
        {"Empty", plist::Value{plist::Dictionary{}}},
        {"Accented", plist::Value{std::string("caf\xC3\xA9")}},
    }};
    const std::string xml = plist::toXml(value);
    EXPECT_TRUE(xml.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC"));
    EXPECT_EQ(plist::parse(xml), value);
}

TEST(PlistWriter, KeysKeepTheirOrder) {
    plist::Value value{plist::Dictionary{{"Zeta", plist::Value{true}}, {"Alpha", plist::Value{true}}}};
    const std::string xml = plist::toXml(value);
    EXPECT_LT(xml.find("Zeta"), xml.find("Alpha"));
}

TEST(PlistWriter, RefusesNestingItWouldNotReadBack) {
    plist::Value deep{plist::Array{}};
    for (int level = 0; level < 300; ++level) deep = plist::Value{plist::Array{deep}};
    EXPECT_THROW(plist::toXml(deep), plist::ParseError);
}

}  // namespace
}  // namespace holdenmere
