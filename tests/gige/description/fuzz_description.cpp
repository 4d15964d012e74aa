// Everything that a camera sends of its description: the URL, an HTTP server's answer, the archive, the
// description, and the registers behind it. What passes the check must neither end the process nor keep it
// busy.
#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
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

const words types = split(
    "Integer IntReg IntSwissKnife Converter IntConverter Float FloatReg SwissKnife Boolean StringReg "
    "Enumeration "
    "Command MaskedIntReg Category StructReg Register Port String Unheard");
const words links = split(
    "pValue pMin pMax pInc pIsLocked pIsAvailable pSelected pIsImplemented pInvalidator pAddress pIndex "
    "pLength "
    "pPort pFeature pCommandValue pValueIndexed pValueDefault pTerminal");
const words numbers = split(
    "Value Min Max Inc Length Address PollingTime LSB MSB Bit OnValue OffValue CommandValue ChunkID "
    "DisplayPrecision EventID");
const words values = split(
    "0 1 4 8 -1 3 31 63 64 0x100 0xffffffff -9223372036854775808 1e9 text 1000000000000 0xffffffffffffffff");
const words constants = split(
    "<AccessMode>RW</AccessMode> <AccessMode>RO</AccessMode> <AccessMode>WO</AccessMode> <Sign>Signed</Sign> "
    "<Endianess>BigEndian</Endianess> <Cachable>NoCache</Cachable> <Cachable>WriteAround</Cachable> "
    "<pPort>Device</pPort> <ImposedAccessMode>RO</ImposedAccessMode> <Unit>us</Unit> "
    "<Streamable>Yes</Streamable> <Representation>Linear</Representation>");
const words formulas = split("Formula FormulaTo FormulaFrom Expression");
const words tokens = split(
    "X Y FROM TO 1 (0-1) + - * / % ** ( ) ? : = &lt;&gt; &lt;&lt; >> &amp; | ~ ABS( 1e 0xf 63 E PI "
    "1&lt;&lt;63 "
    "NEG( SGN( ROUND( .5 >=");

// Makes a description of any bytes: nodes of all types that link to each other, with numbers and formulas on
// and beyond the edge. So the fuzzer's descriptions are well formed more often than not.
class generator {
 public:
  explicit generator(std::span<const std::uint8_t> from) : from_(from) {}

  std::string description() {
    std::string nodes;
    for (char own = 'A'; own < 'Y' && !from_.empty(); ++own) {
      nodes += node(next(8) == 0 ? name() : std::string(1, own));
    }
    return description_test::described(nodes);
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
  const std::string& any(const words& of) { return of[next(of.size())]; }
  std::string name() { return {static_cast<char>('A' + next(24))}; }

  static std::string element(const std::string& type, const std::string& attributes,
                             const std::string& content) {
    return "<" + type + attributes + ">" + content + "</" + type + ">";
  }
  std::string formula(const std::string& type) {
    std::string content;
    for (std::size_t length = next(12) + 1; length > 0; --length) {
      content += any(tokens) + (next(8) == 0 ? " " : "");
    }
    return element(type, "", content);
  }
  std::string property() {
    switch (next(8)) {
      case 0:
      case 1: {
        const std::string& type = any(links);
        return element(type, next(4) == 0 ? " Index='0' Offset='4' pOffset='" + name() + "'" : "", name());
      }
      case 2:
      case 3: {
        const std::string& type = any(numbers);
        return element(type, "", any(values));
      }
      case 4:
        return element("pVariable", next(2) == 0 ? " Name='X'" : " Name='Y'", name());
      case 5:
        return formula(any(formulas));
      case 6:
        return description_test::node("EnumEntry", name(), element("Value", "", any(values)));
      default:
        return any(constants);
    }
  }
  std::string node(const std::string& own) {
    const std::string& type = any(types);
    std::string content;
    for (std::size_t properties = next(8); properties > 0; --properties) {
      content += property();
    }
    if (type == "StructReg" || next(16) == 0) {
      content += description_test::node("StructEntry", name(), "<LSB>3</LSB><MSB>5</MSB>");
    }
    if (next(16) == 0) {
      content += description_test::node("IntSwissKnife", name(), property() + formula("Formula"));
    }
    return description_test::node(type, own, content);
  }

  std::span<const std::uint8_t> from_;
};

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
      describe(generator(bytes).description(), data[1]);
  }
  return 0;
}
