#include "platform/gige/description/camera_features.h"

#include <libxml/parser.h>

#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "platform/gige/description/description_check.h"
#include "platform/gige/description/node_feature.h"

namespace gige {
namespace {

// The outermost category, by the standard.
constexpr const char* rootCategory = "Root";
constexpr std::size_t deepestCategory = 16;

// ArvGc's parser keeps its state in a static variable, so one description is parsed at a time. That takes
// some milliseconds and sends no commands.
ArvGc* parse_description(const std::string& xml, const gc_device& device) {
  static std::mutex parserMutex;
  const std::scoped_lock lock(parserMutex);
  return arv_gc_new(device.get(), xml.data(), xml.size());
}

ArvGc* read_description(const std::string& xml, const gc_device& device) {
  ArvGc* const description = parse_description(xml, device);
  if (description == nullptr) {
    throw description_error("the description cannot be read by ArvGc");
  }
  arv_gc_set_range_check_policy(description, ARV_RANGE_CHECK_POLICY_ENABLE);
  arv_gc_set_access_check_policy(description, ARV_ACCESS_CHECK_POLICY_ENABLE);
  arv_gc_set_register_cache_policy(description, ARV_REGISTER_CACHE_POLICY_DISABLE);
  return description;
}

using category_paths = std::unordered_map<ArvGcNode*, std::string>;

// Adds the path of each node in the category. A node in several categories gets the path of the first.
void add_paths(category_paths& to, ArvGc& description, ArvGcNode* category, const std::string& path,
               std::size_t depth) {
  for (const GSList* each = arv_gc_category_get_features(ARV_GC_CATEGORY(category)); each != nullptr;
       each = each->next) {
    const char* const name = static_cast<const char*>(each->data);
    ArvGcNode* const node = arv_gc_get_node(&description, name);
    if (node == nullptr || !to.emplace(node, path).second) {
      continue;
    }
    if (ARV_IS_GC_CATEGORY(node) && depth < deepestCategory) {
      add_paths(to, description, node, path + "/" + name, depth + 1);
    }
  }
}

category_paths paths_of(ArvGc& description) {
  category_paths paths;
  if (ArvGcNode* const root = arv_gc_get_node(&description, rootCategory); ARV_IS_GC_CATEGORY(root)) {
    paths.emplace(root, "");
    add_paths(paths, description, root, rootCategory, 1);
  }
  return paths;
}

}  // namespace

struct camera_features::contents {
  contents(std::string_view xml, register_port& camera, setup how)
      : cache(camera, std::move(how.now)),
        device(cache),
        description(read_description(checked_description(xml), device)),
        graph(*description),
        context{.registers = cache, .device = device, .graph = graph, .monitoring = how.monitoring},
        registers(*this) {
    category_paths paths = paths_of(*description);
    for (ArvGcFeatureNode* const node : graph.nodes()) {
      if (const auto kind = kind_of(node)) {
        features.push_back(std::make_unique<node_feature>(node, *kind, paths[ARV_GC_NODE(node)], context));
        all.push_back(features.back().get());
        byName[features.back()->name()] = features.back().get();
      }
    }
  }

  // Registers by address. The features learn of each write.
  class raw_registers final : public register_port {
   public:
    explicit raw_registers(contents& of) : of_(of) {}
    void read(std::uint64_t address, std::span<std::uint8_t> to) override {
      of_.cache.begin_access(0, {});
      of_.cache.read(address, to);
    }
    void write(std::uint64_t address, std::span<const std::uint8_t> from) override {
      of_.cache.write(address, from);
      of_.graph.mark_raw_write(of_.cache.advance());
    }

   private:
    contents& of_;
  };

  register_cache cache;
  gc_device device;
  owned<ArvGc> description;
  node_graph graph;
  feature_context context;
  raw_registers registers;
  std::vector<std::unique_ptr<node_feature>> features;
  std::vector<gev::feature*> all;
  std::unordered_map<std::string_view, gev::feature*> byName;
};

camera_features::camera_features(std::string_view xml, register_port& camera, setup how)
    : contents_(std::make_unique<contents>(xml, camera, std::move(how))) {}

camera_features::~camera_features() = default;

const std::vector<gev::feature*>& camera_features::all() const {
  return contents_->all;
}

gev::feature* camera_features::find(std::string_view name) const {
  const auto found = contents_->byName.find(name);
  return found == contents_->byName.end() ? nullptr : found->second;
}

void camera_features::fill(gev::node_map& nodes) {
  contents_->context.mayRead = false;
  for (gev::feature* const each : contents_->all) {
    nodes.add(*each);
  }
  contents_->context.mayRead = true;
}

bool camera_features::execute(const std::string& command) {
  ArvGcNode* const node = arv_gc_get_node(contents_->description.get(), command.c_str());
  if (!ARV_IS_GC_COMMAND(node)) {
    return false;
  }
  contents_->cache.begin_access(register_cache::readAll, {});
  glib_error error;
  arv_gc_command_execute(ARV_GC_COMMAND(node), error.out());
  contents_->graph.mark_written(ARV_GC_FEATURE_NODE(node), contents_->cache.advance());
  contents_->device.rethrow();
  error.raise_if_set(command);
  return true;
}

register_port& camera_features::registers() {
  return contents_->registers;
}

void camera_features::forget_registers(std::uint64_t address, std::uint64_t size) {
  contents_->cache.forget(address, size);
  contents_->graph.mark_raw_write(contents_->cache.advance());
}

void prepare_descriptions() {
  static constexpr std::string_view tiny = R"(<RegisterDescription ModelName="" VendorName=""
    StandardNameSpace="None" SchemaMajorVersion="1" SchemaMinorVersion="1" SchemaSubMinorVersion="0">
    <Category Name="Root"><pFeature>Sum</pFeature></Category>
    <Integer Name="One"><Value>1</Value></Integer>
    <IntSwissKnife Name="Sum"><pVariable Name="X">One</pVariable><Formula>X + 1</Formula></IntSwissKnife>
    <Enumeration Name="Choice"><EnumEntry Name="Only"><Value>0</Value></EnumEntry><Value>0</Value></Enumeration>
    <IntReg Name="Register"><Address>0</Address><Length>4</Length><pPort>Device</pPort></IntReg>
    <Port Name="Device"/>
  </RegisterDescription>)";
  struct : register_port {
    void read(std::uint64_t, std::span<std::uint8_t>) override {}
    void write(std::uint64_t, std::span<const std::uint8_t>) override {}
  } none;
  xmlInitParser();
  const camera_features features(tiny, none, {});
  for (gev::feature* const each : features.all()) {
    each->access();
    each->get(false);
  }
}

}  // namespace gige
