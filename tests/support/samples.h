// Samples of everything that the library reads: one table for all tests of what damage, faults and platforms do.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/bytes.h"

/// Stores what was loaded.
using Store = std::function<void(qcArchive&)>;

inline std::string bytesOf(const Store& store, qcArchive::Ordering ordering, bool seekable = false) {
  qcMemoryArchive archive(ordering, seekable);
  store(archive);
  return bytesOf(archive);
}

/// Whether samples are held against what they were before a load that failed.
inline bool looksAtFailedLoads = false;

/// A value that can be archived.
struct ArchiveSample {
  std::string name;
  Store store;                            // the object as made here
  std::function<Store(qcArchive&)> load;  // keeps what it loads as long as its result lives
};

template <class T>
ArchiveSample held(const std::string& name, std::shared_ptr<T> object) {
  return {name, [object](qcArchive& to) { to || *object; },
          [](qcArchive& from) -> Store {
            const auto loaded = std::make_shared<T>();
            const Store store = [loaded](qcArchive& to) { to || *loaded; };
            constexpr bool isVector = requires(T t) { t.pop_back(); };
            const std::string before = looksAtFailedLoads ? bytesOf(store, kBig) : "";
            try {
              from || *loaded;
            } catch (const qcException&) {  // which leaves all but vectors as they were
              if (looksAtFailedLoads && !isVector && bytesOf(store, kBig) != before) throw std::logic_error("changed");
              throw;
            }
            return store;
          }};
}

template <class T>
ArchiveSample value(const std::string& name, T object) {
  return held(name, std::make_shared<T>(std::move(object)));
}

/// One of every class that can be archived.
std::vector<ArchiveSample> archiveSamples();

struct Case {
  std::string name;
  std::function<std::string(qcArchive::Ordering)> make;            // the archive of what is made here
  std::function<std::string(const std::string& archive)> rewrite;  // the archive of what an archive holds
};

Case plain(const ArchiveSample& sample);

/// All of them, a seekable archive with its index, and a database.
std::vector<Case> cases();

/// Bytes of any format.
struct Sample {
  /// What was read, written again.
  using Again = std::function<std::string()>;

  std::string name, bytes;
  bool flat;   // numbers, texts, pels or runs, and no objects that hold others
  bool image;  // whose rows may be padded, as far as they say
  std::function<Again(std::string_view)> load;
};

/// The value in an archive.
Sample archivedSample(const ArchiveSample& sample, qcArchive::Ordering ordering, bool seekable);

/// Of every value in plain and seekable archives and both orders, of graphs of objects, an index, a database, bitmaps.
std::vector<Sample> samples();
