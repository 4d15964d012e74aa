// Descriptions that would end ArvGc, or keep it busy for ever.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/gige/description/camera_features.h"
#include "platform/gige/description/description_check.h"
#include "platform/gige/description/formula.h"
#include "tests/gige/description/described_camera.h"

namespace description_test {
namespace {

using ::testing::HasSubstr;

// `copies` of a text, with each "#" the number of the copy and each "@" that of the next one.
std::string numbered(int copies, const std::string& text) {
  std::string all;
  for (int copy = 0; copy < copies; ++copy) {
    for (const char c : text) {
      all += c == '#' ? std::to_string(copy) : c == '@' ? std::to_string(copy + 1) : std::string(1, c);
    }
  }
  return all;
}

std::string integer(const std::string& name, const std::string& content) {
  return node("Integer", name, content);
}
std::string reg(const std::string& content) {
  return node("IntReg", "R", "<Address>0</Address><pPort>Device</pPort>" + content);
}

// A description, or nodes of one, and words of its refusal.
using hostile = std::vector<std::pair<std::string, const char*>>;

void expect_refusals(const hostile& cases) {
  for (const auto& [xml, words] : cases) {
    try {
      gige::checked_description(xml);
      ADD_FAILURE() << "accepted: " << xml.substr(0, 200);
    } catch (const gige::description_error& error) {
      EXPECT_THAT(error.what(), HasSubstr(words)) << xml.substr(0, 200);
    }
  }
}

TEST(Description, is_refused_with_the_node_that_would_end_its_reader) {
  const std::string sum =
      "<IntSwissKnife Name='S#'><pVariable Name='X'>S@</pVariable><pVariable Name='Y'>S@"
      "</pVariable><Formula>X+Y</Formula></IntSwissKnife>";
  hostile cases{
      {integer("A", "<pValue>A</pValue>"), "node A: its value is made of itself, A -> A"},
      {integer("A", "<pValue>B</pValue>") + integer("B", "<pValue>C</pValue>") +
           integer("C", "<pValue>B</pValue>"),
       "node B: its value is made of itself, B -> C -> B"},
      {integer("A", "<pValue>B<!-- -->C</pValue>") + integer("BC", "<pValue> A </pValue>"), "made of itself"},
      {integer("A", "<Value>1</Value>") + integer("B", "<pValue>A</pValue>") +
           integer("A", "<pValue>B</pValue>"),
       "made of itself"},
      {integer("A", "<pIndex>B</pIndex><pValueDefault>A</pValueDefault>"), "made of itself"},
      {reg("<pAddress>R</pAddress>"), "made of itself"},
      {reg("<pIndex pOffset='R'>B</pIndex>"), "made of itself"},
      {reg(node("IntSwissKnife", "K", "<pVariable Name='X'>R</pVariable><Formula>X</Formula>")),
       "node R: its value is made of itself, R -> K -> R"},
      {"<StructReg><pAddress>E</pAddress><StructEntry Name='E'><Bit>1</Bit></StructEntry></StructReg>",
       "made of itself"},
      {node("SwissKnife", "A", "<pVariable Name='X.Max'>A</pVariable><Formula>1</Formula>"),
       "made of itself"},
      {reg("<Length>1099511627776</Length>"), "node R: Length is '1099511627776', right is 1 to 65536"},
      {reg("<Length>-4</Length>"), "node R: Length is '-4'"},
      {reg("<Length>0</Length>"), "node R: Length is '0'"},
      {reg("<Length>4<!-- -->000000000</Length>"), "Length is '4000000000'"},
      {reg("<pLength>L</pLength>"), "node R: pLength lets the camera choose"},
      {reg("<PollingTime>9223372036854775807</PollingTime>"), "node R: PollingTime is '9223372036854775807'"},
      {reg("<PollingTime>-1</PollingTime>"), "node R: PollingTime"},
      {numbered(60, integer("N#", "<pValue>N@</pValue>")), "more than 40 nodes away from its registers"},
      {numbered(30, sum), "its value is made of more than 10000 others"},
      {numbered(30, "<Converter Name='S#'><pValue>S@</pValue></Converter>"), "more than 10000 others"},
      {numbered(12, sum) + numbered(300, integer("N#", "<pValue>S0</pValue>")), "others in all"},
      {node("SwissKnife", "K", "<Formula>" + std::string(20'000, '1') + "</Formula>"),
       "node K: a formula of more than 16384 characters"},
      {node("IntSwissKnife", "K", "<Formula>1 / (2</Formula>"), "node K: a bracket that is not closed"},
      {integer(std::string(300, 'n'), ""), "more than 256 characters"},
      {integer("A&#10;B", ""), "spaces or control characters: A B"},
      {node("Enumeration", "A", "<EnumEntry Name='B&#9;'/>"), "control characters: B"},
      {integer("A", numbered(40, " ") + "<Value " + numbered(40, "a#='' ") + "/>"),
       "more than 32 attributes"},
      {numbered(400'001, "<a/>"), "more than 200000 elements"}};
  for (auto& each : cases) {
    each.first = described(each.first);
  }
  expect_refusals(cases);
}

TEST(Description, is_refused_when_it_is_more_or_less_than_elements) {
  expect_refusals(
      {{"", "no XML"},
       {"junk", "no XML"},
       {"<Foo/>", "begins with <Foo>, right is <RegisterDescription>"},
       {described("<g:Integer xmlns:g='x' Name='A'/>"), "<g:Integer> has a prefix, right is <Integer>"},
       {described("<Integer>"), "no XML: line 1: "},
       {described("") + described(""), "no XML"},
       {described(integer("A", "<Value>&any;</Value>")), "no XML"},
       {"<!DOCTYPE R [<!ENTITY a 'b'>]>" + described(""), "declares a document type"},
       {"<?xml version='1.0' encoding='UTF-7'?>+ADwAIQ-DOCTYPE a>" + described(""), "no XML"},
       {described(std::string(1, '\0')), "holds a NUL"},
       {described(numbered(300, "<Group>")), "no XML"}});
}

// Catches a check that refuses cameras that do no harm: limits that depend on each other, links to nothing,
// elements of other standards, the odd character.
TEST(Description, is_accepted_where_it_does_no_harm) {
  for (const std::string& each :
       {integer("A0", "<Value>1</Value><pMax>Max2</pMax>") +
            integer("A1", "<Value>1</Value><pMax>Max1</pMax>") +
            numbered(2, node("IntSwissKnife", "Max@",
                             "<pVariable Name='X'>A#</pVariable><Formula>9 - X</Formula>")),
        integer("A", "<pValue>Nowhere</pValue><pSelected>A</pSelected><pInvalidator>A</pInvalidator>"),
        integer("A", "<Value>1</Value><pIsLocked>A</pIsLocked><pMin>A</pMin>"),
        std::string("<Extension><Anything Name='A'>1</Anything></Extension><!-- ' > -->"),
        node("Register", "Table", "<pLength>L</pLength>") + integer("L", "<Value>8</Value>"),
        integer("\xb5m", "<Unit>\xb5m</Unit><Value>1</Value>")}) {
    EXPECT_NO_THROW(gige::checked_description(described(each))) << each;
  }
}

// The evaluator divides with the processor's instruction, which traps where the result is too large.
TEST(Description, divides_whatever_the_camera_holds) {
  const std::string variables = integer("Least", "<Value>-9223372036854775808</Value>") +
                                integer("Minus", "<Value>-1</Value>") + integer("Two", "<Value>2</Value>");
  const std::string named =
      "<pVariable Name='X'>Least</pVariable><pVariable Name='Y'>Minus</pVariable>"
      "<pVariable Name='Z'>Two</pVariable>";
  for (const auto& [formula, result] : {std::pair("X / Y", "0"),
                                        {"X % Y", "0"},
                                        {"X / -1", "0"},
                                        {"X/(0-1)**3", "0"},
                                        {"X % NEG(1)", "0"},
                                        {"17 / 0x5 + 17 % -5", "5"},
                                        {"X / 0xffffffffffffffff", "1"},
                                        {"100 / (20 / (8 / Z)) / Z", "10"},
                                        {"60 / Z ** 2 - 1e1", "5"}}) {
    memory_port camera;
    gige::camera_features features(
        described(variables + node("IntSwissKnife", "K", named + "<Formula>" + formula + "</Formula>")),
        camera, {});
    EXPECT_EQ(gev::to_text(features.find("K")->get(false)), result) << formula;
  }
}

TEST(Description, grows_no_formula_without_bound) {
  EXPECT_EQ(gige::guard_divisions("A / 8 * B"), "A / 8 * B");
  const std::string nested = numbered(30, "A/(") + "A" + std::string(30, ')');
  EXPECT_THROW(gige::guard_divisions(nested), gige::description_error);
}

}  // namespace
}  // namespace description_test
