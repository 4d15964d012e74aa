// The keys of a configuration file, in one table per section: reading, checking and the template that
// `mediagrabber config` writes all follow these tables.
#ifndef HOST_CONFIG_KEYS_H
#define HOST_CONFIG_KEYS_H

#include <mediagrabber/property.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

using Zavik::Support::MediaGrabber::property;

enum class key_type : std::uint8_t { text, integer, number, boolean, choice };

/// Whether a key must be there: required, replaced by its default, or simply absent.
enum class presence : std::uint8_t { required, defaulted, optional };

/// A word of the file and the code that the bundle knows it by.
struct choice {
  const char* name;
  std::int64_t code;
};

struct config_key {
  const char* name;
  std::optional<property> row = std::nullopt;  ///< where the bundle reads it; none: the host's own
  key_type type = key_type::number;
  presence need = presence::required;
  const char* unit = "";
  double min = 0;  ///< of a number; of a text its length
  double max = 0;
  const char* example = "";  ///< as it stands in a file; the default where there is one
  const char* comment = "";
  std::vector<choice> choices = {};  ///< of a choice
};

using key_table = std::vector<config_key>;

const key_table& camera_keys();
const key_table& pin_keys();    ///< of [[camera.pin]]
const key_table& sweep_keys();  ///< of [[sweep]]

/// The key of that name; null when the table has none.
const config_key* find_key(const key_table& keys, const std::string& name);

/// What a value of this key may be: "a number from 1 to 60000000 us".
std::string expectation(const config_key& key);

/// The unit of the key of that name, wherever it stands; empty when it has none.
std::string unit_of(const std::string& key);

/// The word of `known` that `word` is probably a mistyping of; empty when none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& known);

}  // namespace host

#endif
