#include "platform/gige/description/description_check.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/gige/description/formula.h"
#include "platform/gige/description/markup.h"

namespace gige {
namespace {

// Bytes. Registers of numbers have at most 8, those of texts some hundred. No feature reads a block (look-up
// table, file).
constexpr std::int64_t longestRegister = 65'536;
constexpr std::int64_t longestBlock = 16 << 20;
constexpr std::int64_t longestPolling = 86'400'000;  // milliseconds
constexpr std::size_t longestName = 256;
constexpr std::size_t excerpt = 32;  // characters of a wrong text that a message shows

// Descriptions of cameras have some ten nodes from a feature down to its registers, and some hundred nodes in
// all for a feature with many formulas.
constexpr std::size_t deepest = 40;
constexpr std::uint64_t mostWork = 10'000;               // nodes to visit for one value
constexpr std::uint64_t mostWorkInAll = 100 * mostWork;  // for all values together
constexpr std::size_t charactersAsNode = 16;             // of a formula take as long as one node

struct free_document {
  void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using xml_document = std::unique_ptr<xmlDoc, free_document>;

std::string_view view(const xmlChar* text) {
  return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

std::string_view trimmed(std::string_view text) {
  constexpr const char* spaces = " \t\r\n";
  const std::size_t first = text.find_first_not_of(spaces);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

template <std::size_t Size>
bool contains(const std::array<std::string_view, Size>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

std::string attribute(const xmlNode* element, const char* name) {
  const std::unique_ptr<xmlChar, decltype(xmlFree)> value(
      xmlGetNoNsProp(element, reinterpret_cast<const xmlChar*>(name)), xmlFree);
  return std::string(view(value.get()));
}

// The text of the element itself, without that of its children.
std::string text_in(const xmlNode* element) {
  std::string text;
  for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
    if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
      text += view(child->content);
    }
  }
  return text;
}

void replace_text(xmlNode* element, const std::string& text) {
  xmlNodeSetContent(element, nullptr);
  xmlNodeAddContent(element, reinterpret_cast<const xmlChar*>(text.c_str()));
}

bool is_space_or_control(char c) {
  return (c >= 0 && c <= ' ') || c == '\x7f';
}

// For a message.
std::string printable(std::string_view text) {
  std::string clean(text);
  std::replace_if(clean.begin(), clean.end(), is_space_or_control, ' ');
  return clean;
}

// ---- Parsing

// A description that is no UTF-8 counts as ISO 8859-1, whatever it declares: the odd characters are degrees
// and micrometres.
const char* encoding_of(const std::string& xml) {
  return xmlCheckUTF8(reinterpret_cast<const unsigned char*>(xml.c_str())) != 0 ? "UTF-8" : "ISO-8859-1";
}

constexpr int parserOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_SAX1 |
                              XML_PARSE_IGNORE_ENC | XML_PARSE_NOCDATA;

xml_document parse(const std::string& xml) {
  const std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> context(xmlNewParserCtxt(),
                                                                             xmlFreeParserCtxt);
  xml_document document(xmlCtxtReadMemory(context.get(), xml.data(), static_cast<int>(xml.size()), nullptr,
                                          encoding_of(xml), parserOptions));
  if (document == nullptr) {
    const xmlError* const error = xmlCtxtGetLastError(context.get());
    throw description_error(error == nullptr || error->message == nullptr
                                ? std::string("the description is no XML")
                                : "the description is no XML: line " + std::to_string(error->line) + ": " +
                                      printable(trimmed(error->message)));
  }
  return document;
}

std::string written(xmlDoc* document) {
  xmlChar* bytes = nullptr;
  int size = 0;
  xmlDocDumpMemoryEnc(document, &bytes, &size, "UTF-8");
  const std::unique_ptr<xmlChar, decltype(xmlFree)> owner(bytes, xmlFree);
  return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)};
}

// ---- Nodes and links

constexpr std::array<std::string_view, 19> nodeTypes = {
    "Boolean",      "Category",  "Command",     "Converter",     "Enumeration",  "Float", "FloatReg",
    "IntConverter", "IntReg",    "Integer",     "IntSwissKnife", "MaskedIntReg", "Port",  "Register",
    "String",       "StringReg", "StructEntry", "StructReg",     "SwissKnife"};

// The links that ArvGc follows from one value to the next. In a circle of them it never ends. Limits, locks
// and availability lead to values, but not from one limit to another.
constexpr std::array<std::string_view, 8> valueLinks = {"pValue",    "pValueIndexed", "pValueDefault",
                                                        "pIndex",    "pAddress",      "pLength",
                                                        "pVariable", "pCommandValue"};

constexpr std::array<std::string_view, 4> formulas = {"Formula", "FormulaTo", "FormulaFrom", "Expression"};

bool converts(std::string_view type) {
  return type == "Converter" || type == "IntConverter";
}

bool computes_integers(std::string_view type) {
  return type == "IntSwissKnife" || type == "IntConverter";
}

class node_check {
 public:
  // Raises description_error for the first fault, and rewrites formulas that could trap.
  void check(xmlNode* root) {
    collect(root, {});
    link();
    std::uint64_t all = 0;
    for (node& each : nodes_) {
      all += measure(each);
    }
    if (all > mostWorkInAll) {
      throw description_error("the values of the description are made of " + std::to_string(all) +
                              " others in all, " + std::to_string(mostWorkInAll) + " are allowed");
    }
  }

 private:
  struct node {
    std::string name;
    std::uint64_t ownWork = 1;
    std::vector<std::pair<node*, unsigned>> sources;  // with the number of visits for one value
    enum { unseen, open, done } state = unseen;
    std::size_t height = 1;  // nodes down to its registers
    std::uint64_t work = 0;
  };
  // An element that holds others, and its node.
  struct node_element {
    std::string_view type;
    node* of = nullptr;
  };
  struct named_link {
    node* from;
    std::string to;
    unsigned times;
  };

  [[noreturn]] static void refuse(const node& which, const std::string& what) {
    throw description_error("node " + which.name + ": " + what);
  }

  // Groups, registers (with the formula of their address) and structures hold nodes.
  void collect(xmlNode* element, node_element owner) {
    const std::string_view type = view(element->name);
    check_prefix(element);
    if (contains(nodeTypes, type)) {
      owner = {type, add(element, type, owner.of)};
    } else if (owner.of != nullptr) {
      check_property(element, type, owner);
    }
    for (xmlNode* child = element->children; child != nullptr; child = child->next) {
      if (child->type == XML_ELEMENT_NODE) {
        collect(child, owner);
      }
    }
  }

  // ArvGc ignores name spaces: it would take the element for one of another name.
  static void check_prefix(const xmlNode* element) {
    if (element->ns != nullptr && element->ns->prefix != nullptr) {
      const std::string name(view(element->name));
      throw description_error("<" + std::string(view(element->ns->prefix)) + ":" + name +
                              "> has a prefix, right is <" + name + ">");
    }
  }

  node* add(const xmlNode* element, std::string_view type, node* owner) {
    node* const added = named(name_of(element));
    if (owner != nullptr && type == "StructEntry") {  // a part of its register
      added->sources.emplace_back(owner, 1U);
    } else if (owner != nullptr) {
      owner->sources.emplace_back(added, 1U);
    }
    return added;
  }

  // Names appear in messages and in the log.
  static std::string name_of(const xmlNode* element) {
    std::string name = attribute(element, "Name");
    if (name.size() > longestName || std::any_of(name.begin(), name.end(), is_space_or_control)) {
      throw description_error("a name has more than " + std::to_string(longestName) +
                              " characters, or holds spaces or control characters: " +
                              printable(std::string_view(name).substr(0, excerpt)));
    }
    return name;
  }

  // Nodes of the same name count as one, since a link may lead ArvGc to any of them.
  node* named(const std::string& name) {
    if (node* const known = find(name)) {
      return known;
    }
    node& added = nodes_.emplace_back();
    added.name = name.empty() ? "without a name" : name;
    if (!name.empty()) {
      byName_[added.name] = &added;
    }
    return &added;
  }

  node* find(const std::string& name) {
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second;
  }

  void check_property(xmlNode* element, std::string_view type, const node_element& owner) {
    node& of = *owner.of;
    if (contains(valueLinks, type)) {
      // With its value, a converter reads the limits of that value.
      const unsigned times = type == "pValue" && converts(owner.type) ? 2 : 1;
      links_.push_back({&of, std::string(trimmed(text_in(element))), times});
      links_.push_back({&of, attribute(element, "pOffset"), 1});
    }
    const bool isBlock = owner.type == "Register";
    if (contains(formulas, type)) {
      check_formula(element, owner);
    } else if (type == "Length") {
      check_number(element, of, "Length", 1, isBlock ? longestBlock : longestRegister);
    } else if (type == "pLength" && !isBlock) {
      refuse(of, "pLength lets the camera choose its length, right is Length");
    } else if (type == "PollingTime") {
      check_number(element, of, "PollingTime", 0, longestPolling);
    } else if (type == "EnumEntry") {
      name_of(element);
      ++of.ownWork;
    }
  }

  static void check_number(const xmlNode* element, const node& of, const char* what, std::int64_t least,
                           std::int64_t most) {
    const std::string text = text_in(element);
    const std::string_view digits = trimmed(text);
    const bool hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
    std::int64_t number = -1;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] =
        std::from_chars(digits.data() + (hexadecimal ? 2 : 0), end, number, hexadecimal ? 16 : 10);
    if (error != std::errc() || stop != end || number < least || number > most) {
      refuse(of, std::string(what) + " is '" + printable(digits.substr(0, excerpt)) + "', right is " +
                     std::to_string(least) + " to " + std::to_string(most));
    }
  }

  static void check_formula(xmlNode* element, const node_element& owner) {
    node& of = *owner.of;
    std::string formula = text_in(element);
    if (formula.size() > longestFormula) {
      refuse(of, "a formula of more than " + std::to_string(longestFormula) + " characters");
    }
    if (computes_integers(owner.type) && formula.find_first_of("/%") != std::string::npos) {
      try {
        formula = guard_divisions(formula);
      } catch (const description_error& error) {
        refuse(of, error.what());
      }
      replace_text(element, formula);
    }
    of.ownWork += formula.size() / charactersAsNode;
  }

  void link() {
    for (const named_link& each : links_) {
      if (node* const to = find(each.to)) {
        each.from->sources.emplace_back(to, each.times);
      }
    }
  }

  // The number of nodes to visit for the node's value.
  std::uint64_t measure(node& of) {
    if (of.state == node::done) {
      return of.work;
    }
    path_.push_back(&of);
    if (of.state == node::open) {
      refuse(of, "its value is made of itself, " + path());
    }
    of.state = node::open;
    of.work = of.ownWork;
    for (const auto& [source, times] : of.sources) {
      check_height(of, path_.size());
      of.work += times * measure(*source);
      of.height = std::max(of.height, source->height + 1);
      check_height(of, of.height);
      if (of.work > mostWork) {
        refuse(of, "its value is made of more than " + std::to_string(mostWork) + " others");
      }
    }
    of.state = node::done;
    path_.pop_back();
    return of.work;
  }

  static void check_height(const node& of, std::size_t height) {
    if (height > deepest) {
      refuse(of, "its value is more than " + std::to_string(deepest) + " nodes away from its registers");
    }
  }

  // "A -> B -> A": the circle at the end of the path.
  std::string path() const {
    std::string names;
    auto each = std::find(path_.begin(), path_.end(), path_.back());
    for (; each != path_.end(); ++each) {
      names += (names.empty() ? "" : " -> ") + (*each)->name;
    }
    return names;
  }

  std::deque<node> nodes_;
  std::unordered_map<std::string_view, node*> byName_;
  std::vector<named_link> links_;
  std::vector<const node*> path_;  // from the measured node to the present one
};

}  // namespace

std::string checked_description(std::string_view xml) {
  if (xml.find('\0') != std::string_view::npos) {
    throw description_error("the description is no text: it holds a NUL");
  }
  check_markup(xml);
  const xml_document document = parse(std::string(xml));
  xmlNode* const root = xmlDocGetRootElement(document.get());
  if (view(root->name) != "RegisterDescription") {
    throw description_error("the description begins with <" +
                            std::string(view(root->name).substr(0, excerpt)) +
                            ">, right is <RegisterDescription>");
  }
  node_check().check(root);
  return written(document.get());
}

}  // namespace gige
