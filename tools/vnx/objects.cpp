#include "objects.h"

#include <algorithm>
#include <array>

#include <vnxstd/archive/persistent.h>
#include <vnxstd/archive/text.h>

namespace {

std::array<char, 2> headOf(const std::string& path) {
  std::array<char, 2> head{};
  std::ifstream(path, std::ios::binary).read(head.data(), head.size());
  return head;
}

}  // namespace

FileKind kindOf(const std::string& path) {
  const auto [first, second] = headOf(path);
  if (first == 'B' && second == 'M') return FileKind::bitmap;
  if ((first == 2 || first == 3) && (second == 0 || second == 1)) return FileKind::archive;
  return FileKind::other;
}

ObjectReader::ObjectReader(const std::string& path)
    : isSeekable_(headOf(path)[0] == 3),
      bytes_(path, std::ios::binary),
      archive_(std::make_unique<qcFileArchive>(qf_Widen(path), qcArchive::loading, qcArchive::littleEndian, isSeekable_,
                                               true)) {}

std::optional<qcPersistent*> ObjectReader::next() {
  constexpr unsigned char kObjectRecord[] = {0x4F, 0xE5, 0x70};
  if (archive_->remaining() <= 0) return std::nullopt;
  const std::streamoff at = archive_->tell();
  std::array<char, 3> tag{};
  bytes_.seekg(at).read(tag.data(), tag.size());
  if (!bytes_ || !std::equal(tag.begin(), tag.end(), kObjectRecord,
                             [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; })) {
    unnamed_ = at;
    return std::nullopt;
  }
  qcPersistent* object = nullptr;
  qcPersistent::serializePointer(*archive_, nullptr, object);
  if (auto* counted = dynamic_cast<qcRepBase*>(object))
    shared_.emplace_back(counted);
  else if (object)
    owned_.try_emplace(object, object);
  return object;
}
