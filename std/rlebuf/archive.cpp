// Run-length images in archives.
#include <algorithm>
#include <utility>

#include "std/archive/found.h"
#include "std/rlebuf/rep.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/rlebuf/rlebuf.h"

namespace rle = vnxstd::rle;

const qcRLEBufferRun* vnxstd::rle::takeRow(qc_RLERep& rep, const qcRLEBufferRun* run, const qcRLEBufferRun* end,
                                           std::uint32_t& values) {
  const qcRLEBufferRun* const first = run;
  std::int64_t left = rep.width;
  for (; run != end && run->length() != 0; ++run) {
    left -= run->length();
    values |= run->value();
    if (left < 0) return nullptr;
  }
  if (left != 0 || run == end || run->value() != 0) return nullptr;
  rep.rows.push_back(first);
  rep.counts.push_back(static_cast<std::uint32_t>(run - first));
  return run + 1;
}

namespace {

constexpr char kSource[] = "std/rlebuf/rlebufnt";

/// The fields in front of the runs.
void header(qcArchive& archive, unsigned char version, qc_RLERep& rep, std::int32_t& height, std::uint32_t& total) {
  archive || rep.hint || rep.createTime || rep.width || height;
  if (archive.isLoading() && (rep.width < 1 || height < 1)) {
    throw archive.located(qcArchive::BadContent(kSource, 2951), "a size >= 1", qf_Found(rep.width, height));
  }
  if (version > 0) {
    archive || rep.offsetX || rep.offsetY;
    if (archive.isLoading() && (!rle::fits(rep.offsetX, rep.width) || !rle::fits(rep.offsetY, height))) {
      throw archive.located(qcArchive::BadContent(kSource, 2957), "32-bit coordinates",
                            "an offset of " + qf_Found(rep.offsetX, rep.offsetY));
    }
    if (version == 1) {
      qcXform<2> clientFromImage;
      archive || clientFromImage;
      rep.xforms.xform(new qc2XformLinear(clientFromImage), false);
    } else {
      archive || rep.xforms;
    }
    archive || rep.isBinary;
  }
  archive || total;
}

/// One block of `need` runs. Where the medium cannot tell what it has, memory grows with what arrives.
qcRLEBufferBlock loadRuns(qcArchive& archive, std::size_t need) {
  constexpr std::size_t kFirstPiece = std::size_t{1} << 16;
  archive.countElements(need, sizeof(qcRLEBufferRun));
  const qcInt64 remaining = archive.remaining();
  const bool isKnown = remaining >= 0;
  if (isKnown && static_cast<qcUInt64>(remaining) / sizeof(qcRLEBufferRun) < need) {
    throw archive.located(qcArchive::Eof(kSource, 2990), std::to_string(need) + " runs",
                          std::to_string(remaining / qcInt64{sizeof(qcRLEBufferRun)}));
  }
  qcRLEBufferBlock block;
  for (std::size_t have = 0; have < need;) {
    const std::size_t step = isKnown ? need : std::min(need - have, std::max(have, kFirstPiece));
    qcRLEBufferBlock larger(have + step);
    std::copy_n(block.runs.get(), have, larger.runs.get());
    archive.block(reinterpret_cast<unsigned char*>(larger.runs.get() + have), step * sizeof(qcRLEBufferRun));
    block = std::move(larger);
    have += step;
  }
  return block;
}

std::unique_ptr<qc_RLERep> load(qcArchive& archive, unsigned char version) {
  auto rep = std::make_unique<qc_RLERep>();
  std::int32_t height = 0;
  std::uint32_t total = 0;
  header(archive, version, *rep, height, total);
  const auto width = static_cast<qcUInt64>(rep->width), rows = static_cast<qcUInt64>(height);
  if (total < rows * ((width + 254) / 255) || total > rows * width) {
    throw archive.located(qcArchive::BadContent(kSource, 3012), "a number of runs that fits the size", qf_Found(total));
  }
  const qcUInt64 need = total + rows;
  if (need > static_cast<qcUInt64>(PTRDIFF_MAX) / sizeof(qcRLEBufferRun)) {
    throw archive.located(qcArchive::BadContent(kSource, 3015), "a number of runs that fits memory", qf_Found(need));
  }

  rep->blocks.push_back(loadRuns(archive, static_cast<std::size_t>(need)));
  rep->rows.reserve(static_cast<std::size_t>(height));
  rep->counts.reserve(static_cast<std::size_t>(height));
  const qcRLEBufferRun* run = rep->blocks[0].runs.get();
  const qcRLEBufferRun* const end = run + need;
  std::uint32_t values = 0;
  for (std::int32_t y = 0; y < height; ++y) {
    run = rle::takeRow(*rep, run, end, values);
    if (!run)
      throw archive.located(qcArchive::BadContent(kSource, 3026), "runs that fill row " + qf_Found(y), "others");
  }
  if (run != end)
    throw archive.located(qcArchive::BadContent(kSource, 3028), "no runs behind the last row", qf_Found(end - run));
  rep->isBinary = values <= 1;
  return rep;
}

void store(qcArchive& archive, qc_RLERep& rep) {
  auto height = static_cast<std::int32_t>(rep.height());
  auto total = static_cast<std::uint32_t>(rep.numRuns());
  header(archive, 2, rep, height, total);
  rle::forChains(rep, [&](const qcRLEBufferRun* runs, std::size_t count, std::size_t, std::size_t) {
    archive.block(reinterpret_cast<const unsigned char*>(runs), (count + 1) * sizeof(qcRLEBufferRun));
  });
}

}  // namespace

void qcRLEBuffer::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 2, kSource, 2925);
  if (archive.isStoring() && version < 2) throw qcArchive::UnknownVersion(kSource, 2928);
  if (archive.isStoring() && rep_ && rep_->numRuns() > UINT32_MAX) throw qcArchive::BadContent(kSource, 2930);
  qcPersistent::dispatchSerialize(archive);
  std::int32_t hint = hint_;
  unsigned char isDegenerate = rep_ ? 0 : 1;
  archive || hint || isDegenerate;
  if (isDegenerate > 1)
    throw archive.located(qcArchive::BadContent(kSource, 2939), "a flag of 0 or 1", qf_Found(int{isDegenerate}));
  if (archive.isStoring()) {
    if (rep_) store(archive, *rep_);
    return;
  }
  std::unique_ptr<qc_RLERep> loaded = isDegenerate ? nullptr : load(archive, version);
  mutating();
  hint_ = hint;
  rep_ = std::move(loaded);
}
