#include "platform/gev/nodes.h"

#include <array>

#include "platform/gev/exceptions.h"

namespace gev {
namespace {

// What all kinds have in common. Each operation asks the owner for its lock once and is then one call.
template <class Interface>
class value_node : public GenApi::INode, public Interface {
 public:
  value_node(feature& of, node_owner& owner) : feature_(of), owner_(owner) {}

  GenICam::gcstring GetName() const override { return feature_.name(); }

  GenApi::EAccessMode GetAccessMode() const override {
    const auto lock = enter(operation::access);
    return feature_.access();
  }

  GenICam::gcstring ToString(bool verify, bool ignoreCache) override {
    const value current = read_value(verify, ignoreCache);
    return format(feature_.kind(), feature_.entries(), current);
  }

  void FromString(const GenICam::gcstring& text, bool verify) override {
    const value given = std::string(text.c_str());
    const auto lock = enter_write(given, verify);
    write_text(feature_, text.c_str(), verify);
  }

 protected:
  value read_value(bool verify, bool ignoreCache) {
    const auto lock = owner_.enter(
        {.what = operation::read, .feature = &feature_.name(), .verify = verify, .ignoreCache = ignoreCache});
    return read(feature_, verify, ignoreCache);
  }

  void write_value(const value& written, bool verify) {
    const auto lock = enter_write(written, verify);
    write(feature_, written, verify);
  }

  value limit(operation which) {
    const auto lock = enter(which);
    return which == operation::min   ? feature_.min()
           : which == operation::max ? feature_.max()
                                     : feature_.inc();
  }

 private:
  std::unique_lock<std::mutex> enter(operation what) const {
    return owner_.enter({.what = what, .feature = &feature_.name()});
  }

  std::unique_lock<std::mutex> enter_write(const value& written, bool verify) {
    try {
      return owner_.enter(
          {.what = operation::write, .feature = &feature_.name(), .written = &written, .verify = verify});
    } catch (const GenICam::GenericException& refusal) {
      log_refusal(feature_.name(), to_text(written), "unknown", refusal);
      throw;
    }
  }

  feature& feature_;
  node_owner& owner_;
};

class integer_node final : public value_node<GenApi::IInteger> {
 public:
  using value_node::value_node;
  void SetValue(std::int64_t to, bool verify) override { write_value(to, verify); }
  std::int64_t GetValue(bool verify, bool ignoreCache) override {
    return to_integer(read_value(verify, ignoreCache));
  }
  std::int64_t GetMin() override { return to_integer(limit(operation::min)); }
  std::int64_t GetMax() override { return to_integer(limit(operation::max)); }
  std::int64_t GetInc() override { return to_integer(limit(operation::inc)); }
};

class float_node final : public value_node<GenApi::IFloat> {
 public:
  using value_node::value_node;
  void SetValue(double to, bool verify) override { write_value(to, verify); }
  double GetValue(bool verify, bool ignoreCache) override {
    return to_number(read_value(verify, ignoreCache));
  }
  double GetMin() override { return to_number(limit(operation::min)); }
  double GetMax() override { return to_number(limit(operation::max)); }
};

class boolean_node final : public value_node<GenApi::IBoolean> {
 public:
  using value_node::value_node;
  void SetValue(bool to, bool verify) override { write_value(std::int64_t{to}, verify); }
  bool GetValue(bool verify, bool ignoreCache) override {
    return to_integer(read_value(verify, ignoreCache)) != 0;
  }
};

// The name and number of an entry never change. Its access mode is the camera's.
class entry_node final : public GenApi::IEnumEntry {
 public:
  entry_node(feature& of, node_owner& owner, std::size_t index)
      : feature_(of), owner_(owner), index_(index) {}

  GenApi::EAccessMode GetAccessMode() const override {
    const auto lock =
        owner_.enter({.what = operation::access, .feature = &feature_.name(), .entry = &self().name});
    return self().access;
  }

  GenICam::gcstring ToString(bool /*verify*/, bool /*ignoreCache*/) override { return self().name; }
  void FromString(const GenICam::gcstring& text, bool /*verify*/) override {
    raise<GenICam::AccessException>(feature_.name() + ": entry " + self().name + " cannot be set to '" +
                                    text.c_str() + "', write the enumeration itself");
  }
  std::int64_t GetValue() override { return self().number; }

  const entry& self() const { return feature_.entries()[index_]; }

 private:
  feature& feature_;
  node_owner& owner_;
  std::size_t index_;
};

class enumeration_node final : public value_node<GenApi::IEnumeration> {
 public:
  enumeration_node(feature& of, node_owner& owner) : value_node(of, owner) {
    for (std::size_t index = 0; index < of.entries().size(); ++index) {
      entries_.push_back(std::make_unique<entry_node>(of, owner, index));
    }
  }

  GenApi::IEnumEntry* GetEntryByName(const GenICam::gcstring& name) override {
    return find([&](const entry& each) { return name == each.name.c_str(); });
  }

  GenApi::IEnumEntry* GetCurrentEntry(bool verify, bool ignoreCache) override {
    const std::int64_t current = to_integer(read_value(verify, ignoreCache));
    return find([&](const entry& each) { return each.number == current; });
  }

 private:
  template <class Wanted>
  GenApi::IEnumEntry* find(Wanted wanted) {
    for (const auto& each : entries_) {
      if (wanted(each->self())) {
        return each.get();
      }
    }
    return nullptr;
  }

  std::vector<std::unique_ptr<entry_node>> entries_;
};

class string_node final : public value_node<GenApi::IValue> {
 public:
  using value_node::value_node;
};

}  // namespace

std::string name_of(const feature_access& what) {
  static constexpr std::array words = {"access ", "read ", "write ", "min ", "max ", "inc "};
  const std::string name = words.at(static_cast<std::size_t>(what.what)) + *what.feature;
  return what.entry != nullptr ? name + "." + *what.entry : name;
}

std::unique_ptr<GenApi::INode> make_node(feature& of, node_owner& owner) {
  switch (of.kind()) {
    case value_kind::integer:
      return std::make_unique<integer_node>(of, owner);
    case value_kind::floating:
      return std::make_unique<float_node>(of, owner);
    case value_kind::boolean:
      return std::make_unique<boolean_node>(of, owner);
    case value_kind::enumeration:
      return std::make_unique<enumeration_node>(of, owner);
    case value_kind::string:
      break;
  }
  return std::make_unique<string_node>(of, owner);
}

}  // namespace gev
