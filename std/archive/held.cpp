#include "std/archive/held.h"

#include <mutex>
#include <utility>

qc_HeldTable::Entry* qc_HeldTable::find(const qcPersistent* object) noexcept {
  if (!isHeld(object)) return nullptr;
  if (object->place_ < used_) {
    if (Entry& entry = (*this)[object->place_]; entry.object == object) return &entry;
  }
  if (elsewhere_.empty()) return nullptr;
  const auto found = elsewhere_.find(object);
  return found == elsewhere_.end() ? nullptr : &(*this)[found->second];
}

qc_HeldTable::Place qc_HeldTable::placeOf(std::int32_t id) const noexcept {
  if (const auto index = static_cast<std::size_t>(id) - 1; index < dense_.size()) return dense_[index];
  const auto found = sparse_.find(id);
  return found == sparse_.end() ? kNone : found->second;
}

void qc_HeldTable::lookAt(std::int32_t id, Place place) noexcept try {
  if (place == kNone) return;
  const auto index = static_cast<std::size_t>(id) - 1;
  (index < dense_.size() ? dense_[index] : sparse_[id]) = place;
} catch (...) {  // the object that lies there is loaded anew where it is referred to
}

qc_HeldTable::Entry* qc_HeldTable::findLoaded(std::int32_t id) noexcept {
  const Place place = placeOf(id);
  if (place == kNone) return nullptr;
  Entry& entry = (*this)[place];
  return entry.object && entry.loaded == id ? &entry : nullptr;
}

qc_HeldTable::Place qc_HeldTable::enter(qcPersistent* object) {
  if (const Entry* entry = find(object)) return entry->place;
  if (free_ == kNone && used_ == blocks_.size() * kBlock) blocks_.push_back(std::make_unique<Entry[]>(kBlock));
  const Place place = free_ == kNone ? used_ : free_;
  Entry& entry = (*this)[place];
  const unsigned char held = object->held_.load(std::memory_order_relaxed);
  if (held != 0) {
    elsewhere_.emplace(object, place);
  } else {
    object->place_ = place;
  }
  if (free_ == kNone) {
    ++used_;
  } else {
    free_ = entry.place;
  }
  entry.object = object;
  entry.place = place;
  object->held_.store(held | qcPersistent::kKnown, std::memory_order_relaxed);  // all changes are under the lock
  if (!linked_) {
    linked_ = true;
    previous_ = nullptr;
    next_ = tables_;
    if (next_) next_->previous_ = this;
    tables_ = this;
  }
  return place;
}

qc_HeldTable::Place qc_HeldTable::enterMade(qcPersistent* object, const qcRepBase* rep, std::int32_t id, bool given) {
  const Place place = enter(object);
  Entry& entry = (*this)[place];
  entry.rep = rep;
  entry.making = true;
  entry.given = given;
  entry.lent = !given;
  try {
    if (id == 0) return place;
    if (const auto index = static_cast<std::size_t>(id) - 1; index < dense_.size()) {
      dense_[index] = place;
    } else if (index == dense_.size()) {
      dense_.push_back(place);
    } else {
      sparse_[id] = place;
    }
    entry.loaded = id;
  } catch (...) {
    entry.making = false;
    throw;  // the object leaves the table when the caller destroys it
  }
  return place;
}

void qc_HeldTable::markStored(Entry& entry, std::int32_t id) noexcept {
  entry.stored = id;
  const unsigned char held = entry.object->held_.load(std::memory_order_relaxed);
  entry.object->held_.store(held | qcPersistent::kStored, std::memory_order_relaxed);
}

void qc_HeldTable::forgetStoredBehind(std::int32_t id) noexcept {
  for (Place place = 0; place < used_; ++place) {
    if (Entry& entry = (*this)[place]; entry.stored > id) entry.stored = 0;
  }
}

void qc_HeldTable::charge(Entry& entry, std::streamoff read) noexcept {
  entry.read += read;
  charged_ += read;
}

void qc_HeldTable::giveBack(Entry& entry) noexcept { entry.place = std::exchange(free_, entry.place); }

void qc_HeldTable::remove(Entry& entry) noexcept {
  if (!elsewhere_.empty()) elsewhere_.erase(entry.object);
  if (const auto found = sparse_.find(entry.loaded); found != sparse_.end() && found->second == entry.place) {
    sparse_.erase(found);
  }
  charged_ -= entry.read;
  entry = {.place = entry.place, .making = entry.making};
  if (!entry.making) giveBack(entry);
}

void qc_HeldTable::release(Place place) noexcept {
  Entry& entry = (*this)[place];
  entry.making = entry.dropped = false;
  if (!entry.object) giveBack(entry);
}

void qc_HeldTable::letGo() noexcept {
  const std::lock_guard guard(lock_);
  if (!linked_) return;
  linked_ = false;
  (previous_ ? previous_->next_ : tables_) = next_;
  if (next_) next_->previous_ = previous_;
  for (Place place = 0; place < used_; ++place) {
    qcPersistent* const object = std::exchange((*this)[place], {}).object;
    if (!object) continue;
    unsigned char held = 0;
    for (qc_HeldTable* other = tables_; other; other = other->next_) {
      if (const Entry* theirs = other->find(object)) {
        held |= qcPersistent::kKnown | (theirs->stored != 0 ? qcPersistent::kStored : 0);
      }
    }
    object->held_.store(held, std::memory_order_release);
  }
  if (blocks_.size() > 1) blocks_.resize(1);  // one is kept for those who do this again and again
  used_ = 0;
  free_ = kNone;
  elsewhere_.clear();
  dense_.clear();
  sparse_.clear();
  charged_ = 0;
}

void qc_HeldTable::forgetStored(qcPersistent* object) noexcept {
  const std::lock_guard guard(lock_);
  for (qc_HeldTable* table = tables_; table; table = table->next_) {
    if (Entry* entry = table->find(object)) entry->stored = 0;
  }
  object->held_.fetch_and(static_cast<unsigned char>(~qcPersistent::kStored), std::memory_order_relaxed);
}

void qc_HeldTable::forget(const qcPersistent* object) noexcept {
  const std::lock_guard guard(lock_);
  for (qc_HeldTable* table = tables_; table; table = table->next_) {
    if (Entry* entry = table->find(object)) table->remove(*entry);
  }
}
