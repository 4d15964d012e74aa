// A camera's features as a GenICam node map, GenApi 3.0.
//
// This header stands for a deployment's own `GenApi/GenApi.h` and declares only what the bundle uses of
// it, under the same names. The classes are implemented in `platform/gev`, which is part of each of our
// `libGevApi.so.2`.
//
// The node map owns its nodes, and the open camera owns the node map. A caller gets a node by name and
// casts it (`dynamic_cast`) to the interface of its kind. Every operation that reaches the
// camera may raise an exception of the GenICam::GenericException tree, which is no std::exception.
#ifndef GENAPI_GENAPI_H
#define GENAPI_GENAPI_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

// Classes are shared by libraries, so their type information must exist once in the process.
#define GENAPI_EXPORT __attribute__((visibility("default")))

extern "C" {
// The layout of the node interfaces below is not that of a vendor's framework. A program or library
// built against this header refers to this symbol, which only our own libGevApi.so.2 define, so that
// loading it beside a vendor's library ends with a message that names the reason.
GENAPI_EXPORT extern const int built_with_stand_in_GenApi_headers_rebuild_with_GEV_FRAMEWORK_ROOT;
}
__attribute__((used, visibility("hidden"))) inline const int* const genApiHeadersMarker =
    &built_with_stand_in_GenApi_headers_rebuild_with_GEV_FRAMEWORK_ROOT;

namespace GenICam_3_0 {

// A text. Names of features and entries fit into the object, so that looking one up allocates nothing.
class GENAPI_EXPORT gcstring {
 public:
  gcstring() = default;
  gcstring(const char* text) { assign(text, std::strlen(text)); }
  gcstring(const std::string& text) { assign(text.c_str(), text.size()); }
  const char* c_str() const { return long_.empty() ? short_ : long_.c_str(); }
  operator const char*() const { return c_str(); }
  bool operator==(const gcstring& other) const { return *this == other.c_str(); }
  bool operator==(const char* other) const { return std::strcmp(c_str(), other) == 0; }

 private:
  void assign(const char* text, std::size_t size) {
    if (size < sizeof short_) {
      std::memcpy(short_, text, size + 1);
    } else {
      long_.assign(text, size);
    }
  }

  char short_[48] = {};
  std::string long_;  // used where the text does not fit
};

// Root of all exceptions of the node map.
class GENAPI_EXPORT GenericException {
 public:
  GenericException(const std::string& description, const char* sourceFile, unsigned sourceLine,
                   const char* kind = "GenericException");
  virtual ~GenericException();
  // The whole text: the kind of exception, a colon and the description.
  virtual const char* what() const;
  // The description alone.
  virtual const char* GetDescription() const;
  // Where in the library it was raised.
  virtual const char* GetSourceFileName() const;
  virtual unsigned GetSourceLine() const;

 private:
  std::string description_;
  std::string what_;
  const char* sourceFile_;
  unsigned sourceLine_;
};

// The kinds, each raised by one sort of refusal.
#define GENAPI_EXCEPTION(name)                                                        \
  class GENAPI_EXPORT name : public GenericException {                                \
   public:                                                                            \
    name(const std::string& description, const char* sourceFile, unsigned sourceLine) \
        : GenericException(description, sourceFile, sourceLine, #name) {}             \
    ~name() override;                                                                 \
  };
GENAPI_EXCEPTION(AccessException)           // not present, not readable, not writable, locked
GENAPI_EXCEPTION(OutOfRangeException)       // below the minimum, above the maximum, off the increment
GENAPI_EXCEPTION(InvalidArgumentException)  // no such entry, no number, not a number
GENAPI_EXCEPTION(LogicalErrorException)     // a null node or another misuse by the caller
GENAPI_EXCEPTION(TimeoutException)          // the camera did not answer in time
GENAPI_EXCEPTION(RuntimeException)          // the camera answered with an error
#undef GENAPI_EXCEPTION

}  // namespace GenICam_3_0
namespace GenICam = GenICam_3_0;

namespace GenApi_3_0 {

// Whether a node can be read and written at this moment.
enum EAccessMode {
  NI,  // not implemented
  NA,  // not available
  WO,  // write only
  RO,  // read only
  RW   // read and write
};

class GENAPI_EXPORT IBase {
 public:
  virtual ~IBase();
  virtual EAccessMode GetAccessMode() const = 0;
};

class GENAPI_EXPORT INode : virtual public IBase {
 public:
  ~INode() override;
  virtual GenICam::gcstring GetName() const = 0;
};

// Arguments of all operations below: `verify` checks access and limits, of values that are read, too.
// `ignoreCache` reads from the camera, also when the node map knows the value.

// Anything that has a value which can be written as text.
class GENAPI_EXPORT IValue : virtual public IBase {
 public:
  ~IValue() override;
  virtual GenICam::gcstring ToString(bool verify = false, bool ignoreCache = false) = 0;
  virtual void FromString(const GenICam::gcstring& text, bool verify = true) = 0;
};

class GENAPI_EXPORT IInteger : virtual public IValue {
 public:
  ~IInteger() override;
  virtual void SetValue(std::int64_t value, bool verify = true) = 0;
  virtual std::int64_t GetValue(bool verify = false, bool ignoreCache = false) = 0;
  virtual std::int64_t GetMin() = 0;
  virtual std::int64_t GetMax() = 0;
  virtual std::int64_t GetInc() = 0;
};

class GENAPI_EXPORT IFloat : virtual public IValue {
 public:
  ~IFloat() override;
  virtual void SetValue(double value, bool verify = true) = 0;
  virtual double GetValue(bool verify = false, bool ignoreCache = false) = 0;
  virtual double GetMin() = 0;
  virtual double GetMax() = 0;
};

class GENAPI_EXPORT IBoolean : virtual public IValue {
 public:
  ~IBoolean() override;
  virtual void SetValue(bool value, bool verify = true) = 0;
  virtual bool GetValue(bool verify = false, bool ignoreCache = false) = 0;
};

// One entry of an enumeration. Its text is its symbolic name.
class GENAPI_EXPORT IEnumEntry : virtual public IValue {
 public:
  ~IEnumEntry() override;
  virtual std::int64_t GetValue() = 0;
};

class GENAPI_EXPORT IEnumeration : virtual public IValue {
 public:
  ~IEnumeration() override;
  // Null when there is no entry of that name. An entry that the camera does not offer is NI.
  virtual IEnumEntry* GetEntryByName(const GenICam::gcstring& name) = 0;
  // Null when the camera's value is that of no entry.
  virtual IEnumEntry* GetCurrentEntry(bool verify = false, bool ignoreCache = false) = 0;
};

class GENAPI_EXPORT INodeMap {
 public:
  virtual ~INodeMap();
  // Null when there is no node of that name.
  virtual INode* GetNode(const GenICam::gcstring& name) const = 0;
};

// A reference to a node map, or to none.
class GENAPI_EXPORT CNodeMapRef {
 public:
  explicit CNodeMapRef(INodeMap* map = nullptr) : map_(map) {}
  // The node of that name, or null. Raises AccessException when the reference holds no node map.
  INode* _GetNode(const GenICam::gcstring& name) const;

 private:
  INodeMap* map_;
};

}  // namespace GenApi_3_0
namespace GenApi = GenApi_3_0;

#endif
