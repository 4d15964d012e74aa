// Everything that a camera sends of its description: the URL, an HTTP server's answer, the archive, the
// description, and the registers behind it. What passes the check must neither end the process nor keep it
// busy.
#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "platform/gige/description/archive.h"
#include "platform/gige/description/camera_features.h"
#include "platform/gige/description/description_source.h"
#include "platform/gige/description/http.h"
#include "platform/log2/log_sink.h"
#include "tests/gige/description/described_camera.h"

namespace {

using description_test::memory_port;
using words = std::vector<std::string>;

words split(const char* text) {
  std::istringstream rest(text);
  return {std::istream_iterator<std::string>(rest), {}};
}

// An element of each type, with the same attributes and content.
words elements(const char* types, const std::string& attributes, const std::string& content) {
  words all = split(types);
  for (std::string& each : all) {
    each = "<" + each + attributes + ">" + content + "</" + each + ">";
  }
  return all;
}

// Texts to choose from. "{x}" in a text stands for a text of row x. The first text of a row ends.
std::map<char, words> grammar{
    {'N',
     elements("Integer IntReg IntSwissKnife Converter IntConverter Float FloatReg SwissKnife Boolean "
              "StringReg Enumeration Command MaskedIntReg Category StructReg Register Port String Unheard",
              " Name='{o}'", "{p}{e}")},
    {'n', split("A B C D E F G H I J K L M N O P Q R S T U V W X")},
    {'p', split("{l} {l}{p} {i}{p} {l}{p} {i}{p} {V}{p} {F}{p} {E}{p} {c}{p}")},
    {'l',
     elements("pValue pMin pMax pInc pIsLocked pIsAvailable pSelected pIsImplemented pInvalidator pAddress "
              "pIndex pLength pPort pFeature pCommandValue pValueIndexed pValueDefault pTerminal",
              "{a}", "{n}")},
    {'a', {"", "", "", " Index='0' Offset='4' pOffset='{n}'"}},
    {'i',
     elements(
         "Value Min Max Inc Length Address PollingTime LSB MSB Bit OnValue OffValue CommandValue ChunkID "
         "DisplayPrecision EventID",
         "", "{v}")},
    {'v', split("0 1 4 8 -1 3 31 63 64 0x100 0xffffffff -9223372036854775808 1e9 text 1000000000000 "
                "0xffffffffffffffff")},
    {'V', {"<pVariable Name='X'>{n}</pVariable>", "<pVariable Name='Y'>{n}</pVariable>"}},
    {'F', elements("Formula FormulaTo FormulaFrom Expression", "", "{f}")},
    {'f', {"{t}", "{t}{f}", "{t} {f}", "{t}{f}", "{t}{f}", "{t}{f}"}},
    {'t',
     split("X Y FROM TO 1 (0-1) + - * / % ** ( ) ? : = &lt;&gt; &lt;&lt; >> &amp; | ~ ABS( 1e 0xf 63 E PI "
           "1&lt;&lt;63 NEG( SGN( ROUND( .5 >=")},
    {'E', {"<EnumEntry Name='{n}'><Value>{v}</Value></EnumEntry>"}},
    {'c', split("<AccessMode>RW</AccessMode> <AccessMode>RO</AccessMode> <AccessMode>WO</AccessMode> "
                "<Sign>Signed</Sign> <Endianess>BigEndian</Endianess> <Cachable>NoCache</Cachable> "
                "<Cachable>WriteAround</Cachable> <pPort>Device</pPort> <Unit>us</Unit> "
                "<ImposedAccessMode>RO</ImposedAccessMode> <Streamable>Yes</Streamable>")},
    {'e',
     {"", "", "", "", "", "", "<StructEntry Name='{n}'><LSB>3</LSB><MSB>5</MSB></StructEntry>",
      "<IntSwissKnife Name='{n}'>{p}{F}</IntSwissKnife>"}}};

// Takes a byte of `from` for each choice, and makes nodes that link to each other, with numbers and formulas
// on and beyond the edge. So the fuzzer's descriptions are well formed more often than not.
std::string generated(char row, std::span<const std::uint8_t>& from) {
  const words& texts = grammar.at(row);
  const std::string& chosen = texts[from.empty() ? 0 : from.front() % texts.size()];
  from = from.subspan(from.empty() ? 0 : 1);
  std::string text;
  for (std::size_t at = 0; at < chosen.size(); ++at) {
    if (chosen[at] == '{') {
      text += generated(chosen[at + 1], from);
      at += 2;
    } else {
      text += chosen[at];
    }
  }
  return text;
}

std::string generated_description(std::span<const std::uint8_t> from) {
  std::string nodes;
  for (const std::string& own : grammar.at('n')) {
    grammar['o'] = {own, own, own, own, own, own, own, "{n}"};
    nodes += from.empty() ? "" : generated('N', from);
  }
  return description_test::described(nodes);
}

// Refusals are exceptions of these two kinds.
template <class Work>
void attempt(Work work) {
  try {
    work();
  } catch (const gige::description_error&) {
  } catch (const GenICam::GenericException&) {
  }
}

void use(gev::feature& feature) {
  attempt([&] { feature.access(); });
  attempt([&] { feature.obstacle(); });
  attempt([&] { gev::format(feature.kind(), feature.entries(), feature.get(false)); });
  if (feature.kind() == gev::value_kind::integer || feature.kind() == gev::value_kind::floating) {
    attempt([&] { feature.min(); });
    attempt([&] { feature.max(); });
    attempt([&] { feature.inc(); });
  }
  attempt([&] { gev::write(feature, std::int64_t{-1}, false); });
  attempt([&] { gev::write(feature, std::int64_t{1}, true); });
  attempt([&] { feature.get(true); });
}

void describe(const std::string& xml, std::uint8_t content) {
  attempt([&] {
    memory_port camera;
    for (std::size_t at = 0; at < camera.memory.size(); ++at) {
      camera.memory[at] = static_cast<std::uint8_t>(at % 8 == 0 ? content : content & 1 ? 0xff : 0);
    }
    gige::camera_features features(xml, camera, {});
    for (gev::feature* const each : features.all()) {
      use(*each);
    }
    for (char name = 'A'; name < 'Z'; ++name) {
      attempt([&] { features.execute(std::string(1, name)); });
    }
  });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  g_log_set_default_handler([](const char*, GLogLevelFlags, const char*, void*) {}, nullptr);
  LogSetSink([](void*, const log_line*) {}, nullptr);
  gige::prepare_descriptions();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const std::span<const std::uint8_t> bytes(data + 2, size - 2);
  const std::string text(bytes.begin(), bytes.end());
  switch (data[0] % 8) {
    case 0:
      attempt([&] { gige::parse_source(text); });
      attempt([&] { gige::content_of(text); });
      break;
    case 1:
      attempt([&] { gige::unpack(text); });
      break;
    case 2:
      describe(text, data[1]);
      break;
    default:
      describe(generated_description(bytes), data[1]);
  }
  return 0;
}
