#include "tests/gige/description/generated_description.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace description_test {
namespace {

constexpr std::array types = {"Integer",     "IntReg",   "IntSwissKnife", "Converter", "IntConverter",
                              "Float",       "FloatReg", "SwissKnife",    "Boolean",   "StringReg",
                              "Enumeration", "Command",  "MaskedIntReg",  "Category",  "StructReg",
                              "Register",    "Port",     "String",        "Unheard"};
constexpr std::array links = {
    "pValue",    "pMin",           "pMax",          "pInc",          "pIsLocked",     "pIsAvailable",
    "pSelected", "pIsImplemented", "pInvalidator",  "pAddress",      "pIndex",        "pLength",
    "pPort",     "pFeature",       "pCommandValue", "pValueIndexed", "pValueDefault", "pTerminal"};
constexpr std::array numbers = {
    "Value", "Min", "Max",     "Inc",      "Length",       "Address", "PollingTime",      "LSB",
    "MSB",   "Bit", "OnValue", "OffValue", "CommandValue", "ChunkID", "DisplayPrecision", "EventID"};
constexpr std::array values = {"0",
                               "1",
                               "4",
                               "8",
                               "-1",
                               "3",
                               "31",
                               "63",
                               "64",
                               "0x100",
                               "0xffffffff",
                               "-9223372036854775808",
                               "1e9",
                               "text",
                               "1000000000000",
                               "0xffffffffffffffff"};
constexpr std::array words = {"<AccessMode>RW</AccessMode>",
                              "<AccessMode>RO</AccessMode>",
                              "<AccessMode>WO</AccessMode>",
                              "<Sign>Signed</Sign>",
                              "<Endianess>BigEndian</Endianess>",
                              "<Cachable>NoCache</Cachable>",
                              "<Cachable>WriteAround</Cachable>",
                              "<pPort>Device</pPort>",
                              "<ImposedAccessMode>RO</ImposedAccessMode>",
                              "<Unit>us</Unit>",
                              "<Streamable>Yes</Streamable>",
                              "<Representation>Linear</Representation>"};
constexpr std::array tokens = {"X",  "Y",  "FROM",  "TO",   "1",    "(0-1)",  "+",  "-",   "*",
                               "/",  "%",  "**",    "(",    ")",    "?",      ":",  "=",   "<>",
                               "<<", ">>", "&",     "|",    "~",    "ABS(",   "1e", "0xf", "63",
                               "E",  "PI", "1<<63", "NEG(", "SGN(", "ROUND(", " ",  ".5",  ">="};

class generator {
 public:
  explicit generator(std::span<const std::uint8_t> from) : from_(from) {}

  std::string description() {
    text_ = "<RegisterDescription SchemaMajorVersion='1' SchemaMinorVersion='1' SchemaSubMinorVersion='0'>";
    for (std::size_t at = 0; at < 24 && !from_.empty(); ++at) {
      node(at);
    }
    return text_ + "<Port Name='Device'/></RegisterDescription>";
  }

 private:
  std::size_t next(std::size_t below) {
    if (from_.empty()) {
      return 0;
    }
    const std::size_t value = from_.front() % below;
    from_ = from_.subspan(1);
    return value;
  }
  template <class Words>
  std::string_view any(const Words& of) {
    return of[next(of.size())];
  }
  std::string name() { return std::string(1, static_cast<char>('A' + next(24))); }

  void element(std::string_view type, const std::string& attributes, const std::string& content) {
    text_.append("<").append(type).append(attributes).append(">");
    for (const char c : content) {
      c == '<' ? text_.append("&lt;") : c == '&' ? text_.append("&amp;") : text_.append(1, c);
    }
    text_.append("</").append(type).append(">");
  }

  void formula(std::string_view type) {
    std::string content;
    for (std::size_t length = next(12) + 1; length > 0; --length) {
      content += any(tokens);
    }
    element(type, "", content);
  }

  void property() {
    switch (next(8)) {
      case 0:
      case 1:
        return element(any(links), next(4) == 0 ? " Index='0' Offset='4' pOffset='" + name() + "'" : "",
                       name());
      case 2:
      case 3:
        return element(any(numbers), "", std::string(any(values)));
      case 4:
        return element("pVariable", next(2) == 0 ? " Name='X'" : " Name='Y'", name());
      case 5:
        return formula(std::array{"Formula", "FormulaTo", "FormulaFrom", "Expression"}[next(4)]);
      case 6:
        text_.append("<EnumEntry Name='").append(name()).append("'>");
        element("Value", "", std::string(any(values)));
        text_.append("</EnumEntry>");
        return;
      default:
        text_ += any(words);
    }
  }

  void node(std::size_t at) {
    const std::string_view type = any(types);
    const std::string own(1, static_cast<char>('A' + (next(8) == 0 ? next(24) : at)));
    text_.append("<").append(type).append(" Name='").append(own).append("'>");
    for (std::size_t properties = next(8); properties > 0; --properties) {
      property();
    }
    if (type == "StructReg" || next(16) == 0) {
      text_.append("<StructEntry Name='").append(name()).append("'><LSB>3</LSB><MSB>5</MSB></StructEntry>");
    }
    if (next(16) == 0) {
      text_.append("<IntSwissKnife Name='").append(name()).append("'>");
      property();
      formula("Formula");
      text_.append("</IntSwissKnife>");
    }
    text_.append("</").append(type).append(">");
  }

  std::span<const std::uint8_t> from_;
  std::string text_;
};

}  // namespace

std::string generated_description(std::span<const std::uint8_t> from) {
  return generator(from).description();
}

}  // namespace description_test
