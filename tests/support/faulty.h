// Media in memory that fail on purpose: refused writes and seeks, buffers of any size.
#pragma once

#include <algorithm>
#include <streambuf>
#include <string>
#include <vector>

#include "vnxstd/archive/archive.h"

struct Faults {
  static constexpr std::size_t kNone = ~std::size_t{0};
  std::size_t writeLimit = kNone;  // bytes that are taken before the medium is full
  std::size_t chunk = 1;           // bytes that are read ahead
  bool seeks = true;
};

class FaultyBuffer : public std::streambuf {
 public:
  explicit FaultyBuffer(std::string data = {}, Faults faults = {}) : data_(std::move(data)), faults_(faults) {}
  const std::string& data() const { return data_; }

  std::size_t seeksLeft = Faults::kNone;  // before one fails

 protected:
  int_type underflow() override {
    const std::size_t from = here(), to = std::min(data_.size(), from + faults_.chunk);
    if (from >= to) return traits_type::eof();
    setg(data_.data() + from, data_.data() + from, data_.data() + to);
    return traits_type::to_int_type(*gptr());
  }
  int_type overflow(int_type c) override {
    if (writeAt_ >= faults_.writeLimit || traits_type::eq_int_type(c, traits_type::eof())) return traits_type::eof();
    if (writeAt_ == data_.size()) data_.push_back('\0');
    data_[writeAt_++] = traits_type::to_char_type(c);
    return c;
  }
  pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override {
    if (seeksLeft != Faults::kNone && seeksLeft-- == 0) return pos_type(off_type(-1));
    if (from == std::ios_base::end) offset += static_cast<off_type>(data_.size());
    if (from == std::ios_base::cur) offset += static_cast<off_type>((which & std::ios_base::in) ? here() : writeAt_);
    return seekpos(pos_type(offset), which);
  }
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    const auto target = static_cast<off_type>(position);
    if (!faults_.seeks || target < 0 || target > static_cast<off_type>(data_.size())) return pos_type(off_type(-1));
    if (which & std::ios_base::out) {
      writeAt_ = static_cast<std::size_t>(target);
    } else {
      readAt_ = static_cast<std::size_t>(target);
      setg(nullptr, nullptr, nullptr);
    }
    return position;
  }

 private:
  std::size_t here() const { return gptr() ? static_cast<std::size_t>(gptr() - data_.data()) : readAt_; }

  std::string data_;
  Faults faults_;
  std::size_t readAt_ = 0, writeAt_ = 0;
};

/// A medium that keeps a record of all that was written, and where.
class LoggedBuffer : public FaultyBuffer {
 public:
  struct Write {
    std::size_t at;
    std::string bytes;
  };
  std::vector<Write> log;
  std::vector<std::size_t> syncs;  // writes before each

 protected:
  int sync() override { return syncs.push_back(log.size()), 0; }
  int_type overflow(int_type c) override { return write(std::string(1, traits_type::to_char_type(c))), c; }
  std::streamsize xsputn(const char* bytes, std::streamsize n) override {
    return write(std::string(bytes, static_cast<std::size_t>(n))), n;
  }

 private:
  void write(const std::string& bytes) {
    log.push_back({static_cast<std::size_t>(pubseekoff(0, std::ios_base::cur, std::ios_base::out)), bytes});
    for (const char c : bytes) FaultyBuffer::overflow(traits_type::to_int_type(c));
  }
};

inline void apply(std::string& bytes, const LoggedBuffer::Write& write, std::size_t count) {
  bytes.resize(std::max(bytes.size(), write.at + count));
  bytes.replace(write.at, count, write.bytes, 0, count);
}

/// An archive on any stream buffer.
class StreamArchive : public qcArchive {
 public:
  StreamArchive(std::streambuf& buffer, Direction direction, Ordering ordering = littleEndian, bool seekable = false)
      : qcArchive(&buffer, direction, ordering, seekable, false) {
    ctorFinished();
  }
  ~StreamArchive() override { dtorStarting(); }
};

/// Loads a value through a pipe, which cannot tell how many bytes are left.
template <class T>
void loadFromPipe(const std::string& bytes, T& value) {
  FaultyBuffer pipe(bytes, {.chunk = 5000, .seeks = false});
  StreamArchive archive(pipe, qcArchive::loading);
  archive || value;
}
