// The registry of archivable classes: from the name of a type to the function that makes an object of it.
#pragma once

#include <string>
#include <string_view>
#include <typeinfo>

#include "vnxstd/export.h"

class qcPersistent;

/// Registers one archivable class for the life of the process. Made as a static object beside the class:
///
///     static const qc_Instantiator registered(typeid(qcLine), &qcLine::make);
///
/// The entry is keyed by the canonical name of the type (qcDevEnv::canonicalTypeName), which is the same from every
/// compiler and platform. Registering a name again replaces nothing: the first registration holds. Safe from the static
/// initialisers of any translation unit, whatever their order, and from several threads.
class VNXSTD_EXPORT qc_Instantiator {
 public:
  using Maker = qcPersistent* (*)();

  /// A null maker registers an abstract class: its name is known, and loading one throws qcArchive::UnknownType.
  qc_Instantiator(const std::type_info& type, Maker make);

  /// Registers a class whose objects are stored, and come back, as objects of another one: a derived class that differs
  /// only in where its memory comes from, for instance. `make` makes an object of `archivedAs`.
  qc_Instantiator(const std::type_info& type, const std::type_info& archivedAs, Maker make);
};

/// One class in the registry.
struct qc_RegistryEntry {
  std::string name;
  qc_Instantiator::Maker make = nullptr;
};

/// The entry of that name, or null. Entries live as long as the process.
VNXSTD_EXPORT const qc_RegistryEntry* qf_FindRegistered(std::string_view name) noexcept;

/// The entry of that type, or null; cheaper than asking for its name each time.
VNXSTD_EXPORT const qc_RegistryEntry* qf_FindRegistered(const std::type_info& type);

/// Calls `visit` with every entry, in order of name. Classes registered meanwhile may be left out.
VNXSTD_EXPORT void qf_VisitRegistered(void (*visit)(const qc_RegistryEntry&, void* context), void* context);
