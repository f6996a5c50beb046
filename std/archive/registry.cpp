#include "vnxstd/archive/registry.h"

#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <typeindex>
#include <unordered_map>

#include "vnxstd/except/typename.h"

namespace {

struct Registry {
  std::shared_mutex lock;
  // By name in order; the entries themselves never move.
  std::map<std::string_view, std::unique_ptr<const qc_RegistryEntry>> byName;
  std::unordered_map<std::type_index, const qc_RegistryEntry*> byType;
};

// Made on first use and never destroyed: static initialisers register, and code that runs at exit may still load.
Registry& registry() {
  static Registry& table = *new Registry;
  return table;
}

// The entry of that type's name, made when there is none. The registry is locked.
const qc_RegistryEntry* enter(Registry& table, const std::type_info& named, qc_Instantiator::Maker make) {
  std::string name = qcDevEnv::canonicalTypeName(named.name());
  if (const auto found = table.byName.find(name); found != table.byName.end()) return found->second.get();
  auto entry = std::make_unique<const qc_RegistryEntry>(qc_RegistryEntry{std::move(name), make});
  const qc_RegistryEntry* raw = entry.get();
  table.byName.emplace(raw->name, std::move(entry));
  return raw;
}

}  // namespace

qc_Instantiator::qc_Instantiator(const std::type_info& type, Maker make) {
  Registry& table = registry();
  const std::unique_lock guard(table.lock);
  table.byType.emplace(type, enter(table, type, make));
}

qc_Instantiator::qc_Instantiator(const std::type_info& type, const std::type_info& archivedAs, Maker make) {
  Registry& table = registry();
  const std::unique_lock guard(table.lock);
  table.byType.emplace(type, enter(table, archivedAs, make));
}

const qc_RegistryEntry* qf_FindRegistered(std::string_view name) noexcept {
  Registry& table = registry();
  const std::shared_lock guard(table.lock);
  const auto found = table.byName.find(name);
  return found == table.byName.end() ? nullptr : found->second.get();
}

const qc_RegistryEntry* qf_FindRegistered(const std::type_info& type) {
  Registry& table = registry();
  const std::shared_lock guard(table.lock);
  const auto found = table.byType.find(type);
  return found == table.byType.end() ? nullptr : found->second;
}

void qf_VisitRegistered(void (*visit)(const qc_RegistryEntry&, void* context), void* context) {
  // One entry at a time, so that `visit` may use the registry itself. Entries are never removed.
  Registry& table = registry();
  const qc_RegistryEntry* entry = nullptr;
  const auto following = [&table, &entry]() -> const qc_RegistryEntry* {
    const std::shared_lock guard(table.lock);
    const auto found = entry ? table.byName.upper_bound(entry->name) : table.byName.begin();
    return found == table.byName.end() ? nullptr : found->second.get();
  };
  while ((entry = following()) != nullptr) visit(*entry, context);
}
