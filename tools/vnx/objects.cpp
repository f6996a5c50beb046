#include "objects.h"

#include <algorithm>
#include <array>

#include <vnxstd/archive/persistent.h>
#include <vnxstd/archive/text.h>

ObjectReader::ObjectReader(const std::string& path)
    : isSeekable_(std::ifstream(path, std::ios::binary).get() == 3),
      bytes_(path, std::ios::binary),
      archive_(std::make_unique<qcFileArchive>(qf_Widen(path), qcArchive::loading, qcArchive::littleEndian, isSeekable_,
                                               true)) {}

std::optional<qcPersistent*> ObjectReader::next() {
  constexpr char kRecord[] = {0x4F, char(0xE5), 0x70};
  constexpr char kMark = 0x12;
  if (archive_->remaining() <= 0) return std::nullopt;
  const std::streamoff at = archive_->tell();
  std::array<char, 10> head{};
  bytes_.seekg(at).read(head.data(), head.size());
  // What a mark leads to, the program that set it knows. The upper bits of the kind are flags.
  bytes_.clear();  // the last record may be shorter
  if (!std::equal(std::begin(kRecord), std::end(kRecord), head.begin()) || (head[9] & 0x3F) == kMark) {
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
