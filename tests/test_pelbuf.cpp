// Pixel types, rectangles, roots and buffers.
#if !defined(_WIN32)
#include <sys/mman.h>
#endif

#include <bit>

#include "support/bytes.h"
#include "support/faulty.h"
#include "support/scene.h"
#include "vnxstd/pelbuf/buffer.h"

namespace {

using namespace scene;

using Random = std::mt19937_64;

long uniform(Random& random, long low, long high) { return std::uniform_int_distribution<long>(low, high)(random); }

// Every word and component value: the field read back, the other fields and, for red, the bit above it.
template <class Pel>
void checkPackedWord(unsigned redShift, unsigned greenBits) {
  const unsigned greenMask = (1u << greenBits) - 1;
  for (unsigned word = 0; word < 65536; word += 7) {
    const Pel pel = Pel::fromWord(static_cast<std::uint16_t>(word));
    ASSERT_EQ(pel.r(), word / (1u << redShift) % 32 * 8) << word;
    ASSERT_EQ(pel.g(), word / 32 % (greenMask + 1) * (256 >> greenBits)) << word;
    ASSERT_EQ(pel.b(), word % 32 * 8) << word;
    const auto value = static_cast<unsigned char>(word * 31);
    Pel red = pel, green = pel, blue = pel;
    red.r(value), green.g(value), blue.b(value);
    ASSERT_EQ(red.word(), (value / 8u << redShift) + word % (1u << redShift)) << word;
    ASSERT_EQ(green.word(), word - (pel.g() >> (8 - greenBits)) * 32 + (value >> (8 - greenBits)) * 32u) << word;
    ASSERT_EQ(blue.word(), word / 32 * 32 + value / 8u) << word;
  }
}

TEST(Pel, PackedWordsKeepTheirFieldsApart) {
  checkPackedWord<qcPackedRGB15Pel>(10, 5);
  checkPackedWord<qcPackedRGB16Pel>(11, 6);
}

TEST(Pel, BytesLieBlueFirst) {
  const bool isBig = std::endian::native == std::endian::big;  // words then begin with alpha
  qcPackedRGB32Pel pel(1, 2, 3, 4);
  EXPECT_EQ(std::memcmp(&pel, isBig ? "\4\1\2\3" : "\3\2\1\4", 4), 0);
  pel.r(0xA1), pel.g(0xA2), pel.b(0xA3), pel.a(0xA4);
  EXPECT_EQ(std::memcmp(&pel, isBig ? "\xA4\xA1\xA2\xA3" : "\xA3\xA2\xA1\xA4", 4), 0);
  const qcPackedRGB24Pel parts(1, 2, 3), whole(0xFF010203ul);
  EXPECT_TRUE(parts == whole && std::memcmp(&whole, "\3\2\1", sizeof whole) == 0);
}

using Cells = std::set<std::pair<long, long>>;

Cells cells(const qcPelRect& r) {
  Cells result;
  forEachPel(r, [&result](long x, long y) { result.insert({x, y}); });
  return result;
}

TEST(Rect, OperationsAreThoseOfSetsOfPels) {
  Random random(1);
  const auto make = [&] {
    return qcPelRect(uniform(random, -4, 4), uniform(random, -4, 4), uniform(random, 0, 5), uniform(random, 0, 5));
  };
  for (int round = 0; round < 300; ++round) {
    const qcPelRect a = make(), b = make();
    Cells both, sum, positions;
    for (const auto& p : cells(a)) {
      if (cells(b).count(p)) both.insert(p);
      for (const auto& q : cells(b)) sum.insert({p.first + q.first, p.second + q.second});
    }
    forEachPel(qcPelRect(-16, -16, 32, 32), [&](long x, long y) {
      bool isInside = !b.isNull();
      for (const auto& q : cells(b)) isInside = isInside && a.contains(q.first + x, q.second + y);
      if (isInside) positions.insert({x, y});
    });
    ASSERT_EQ(a.overlaps(b), !both.empty());
    if (both.empty()) {
      EXPECT_THROW((void)(a & b), qcRectErrors::NoOverlap);
    } else {
      ASSERT_EQ(cells(a & b), both);
    }
    ASSERT_EQ(cells(a + b), sum);
    ASSERT_EQ(cells(a - b), positions);
  }
}

TEST(Rect, RefusesWhatIsNoRegion) {
  EXPECT_THROW(qcRectangle<long>::fromCorners(0, 5, 3, 4), qcRectErrors::NegativeSize);
  EXPECT_THROW(qcPelSpan(3, -1), qcRectErrors::NegativeSize);
  EXPECT_THROW(qcPelRect(LONG_MAX, LONG_MIN, LONG_MAX, 1), qcPelFunc::Range);
  EXPECT_THROW(qcRectangle<long>::fromCorners(-2, 0, INT32_MAX, 1), qcPelFunc::Range);
  EXPECT_THROW(qcPelRect(5, 5).translated(INT32_MAX - 4, 0), qcPelFunc::Range);
  EXPECT_THROW(qcPelSpan(INT32_MAX, 0) + qcPelSpan(1, 0), qcPelFunc::Range);
}

TEST(Root, PaddingIsTheSmallestThatAlignsTheRow) {
  for (long align = 1; align <= 70; ++align) {
    for (const unsigned pelSize : {1u, 2u, 3u, 4u, 8u}) {
      for (long width = 0, pad = 0; width < 40; ++width, pad = 0) {
        while ((width + pad) * static_cast<long>(pelSize) % align != 0) ++pad;
        ASSERT_EQ(qc_PelRoot::padPelsNeeded(width, pelSize, align), pad) << width << ' ' << pelSize << ' ' << align;
      }
    }
  }
  EXPECT_EQ(qcPelRoot<qcPair<float>>::padPelsNeeded(3, 16), 1);
  EXPECT_EQ(qcPelRoot<unsigned long>::padPelsNeeded(3, 16), 1);  // four bytes on every platform
}

TYPED_TEST(EveryPel, HasRowsAlignedToTheModulusAndToItself) {
  using T = TypeParam;
  for (const long align : {1L, 2L, 3L, 24L, 64L, 1000L, 65536L}) {
    const qcPelRoot<T> root(5, 3, align);
    root.repInvariant();
    for (long y = 0; y < 3; ++y) {
      const auto row = reinterpret_cast<std::uintptr_t>(root.pels() + y * root.rowUpdate());
      EXPECT_TRUE(row % static_cast<std::uintptr_t>(align) == 0 && row % alignof(qcStoredPel<T>) == 0) << align;
      std::memset(reinterpret_cast<void*>(row), 1, static_cast<std::size_t>(root.rowUpdate()) * sizeof(qcStoredPel<T>));
    }
  }
}

TEST(Root, RefusesImpossibleSizes) {
  using U8 = qcPelRoot<unsigned char>;
  EXPECT_THROW(U8(0, LONG_MIN), qcRectErrors::NegativeSize);
  EXPECT_THROW(U8(4, 4, 0), qcPelFunc::BadParams);
  EXPECT_THROW(U8(4, 4, 65537), qcPelFunc::BadParams);
  EXPECT_THROW(U8(LONG_MAX, 1), qcPelFunc::Range);
  EXPECT_THROW(U8(INT32_MAX, 1, 64), qcPelFunc::Range);
  // 2^62 pels: the bytes need 65 bits.
  EXPECT_THROW(qcPelRoot<double>(INT32_MAX - 63, INT32_MAX), std::bad_alloc);
  EXPECT_THROW(qcPelRoot<qc3PlanePel>(INT32_MAX - 63, INT32_MAX), std::bad_alloc);
  const U8 empty(0, 7);
  empty.repInvariant();
  EXPECT_EQ(empty.height(), 0);
}

TEST(Root, AdoptedMemoryIsTrustedButNotFreed) {
  alignas(16) unsigned short memory[40] = {};
  using U16 = qcPelRoot<unsigned short>;
  // Rows of 14 bytes, whatever the alignment.
  U16(3, 4, 7, memory, 16).vectToPels(qcPelRect(0, 0, 3, 4), std::vector<unsigned short>(12, 9));
  for (int i = 0; i < 40; ++i) EXPECT_EQ(memory[i], i < 28 && i % 7 < 3 ? 9 : 0) << i;
  EXPECT_EQ(U16(3, 4, memory, 16).rowUpdate(), 8);
  EXPECT_THROW(U16(3, 4, 2, memory, 1), qcPelFunc::BadParams);
  EXPECT_THROW(U16(3, 4, nullptr, 1), qcPelFunc::BadParams);
  auto* const odd = reinterpret_cast<unsigned short*>(reinterpret_cast<char*>(memory) + 1);
  EXPECT_THROW(U16(3, 4, odd, 1), qcPelFunc::BadParams);
}

#if defined(__LP64__)  // addresses that cost no memory
TEST(Root, PelsBeyondTwoGibibytesAreReached) {
  constexpr std::size_t kSide = 66000;  // 4.06 GiB of addresses, of which two pages are touched
  void* const memory =
      mmap(nullptr, kSide * kSide, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* const bytes = static_cast<unsigned char*>(memory);
  const qcPelBuffer<unsigned char> image(new qcPelRoot<unsigned char>(kSide, kSide, bytes, 1));
  image.put(kSide - 1, kSide - 1, 77);
  EXPECT_TRUE(bytes[kSide * kSide - 1] == 77 && image.contains(image.pointToRow(50000) + 5));
  std::vector<unsigned char> corner;
  image.rep()->pelsToVect(qcPelRect(kSide - 1, kSide - 2, 1, 2), corner);
  EXPECT_EQ(corner, (std::vector<unsigned char>{0, 77}));
  munmap(memory, kSide * kSide);
}
#endif

// Copies between places of one root and of two, against pels moved one by one out of a snapshot.
TEST(Root, CopyMovesWhatLiesInBothRoots) {
  Random random(2);
  using Root = qcPelRoot<unsigned short>;
  for (int round = 0; round < 1000; ++round) {
    const qcPtrHandle<Root> a(new Root(uniform(random, 1, 7), uniform(random, 1, 7), 2));
    const qcPtrHandle<Root> b = round % 2 ? a : qcPtrHandle<Root>(new Root(uniform(random, 1, 7), 5, 4));
    std::vector<unsigned short> before(static_cast<std::size_t>(a->width() * a->height())), after;
    for (auto& pel : before) pel = static_cast<unsigned short>(random());
    std::vector<unsigned short> expected(static_cast<std::size_t>(b->width() * b->height()), 3);
    b->vectToPels(b->rect(), expected);
    a->vectToPels(a->rect(), before);
    if (b == a) expected = before;
    const qcPelRect from(uniform(random, -2, 5), uniform(random, -2, 5), uniform(random, 0, 6), uniform(random, 0, 6));
    const qcPair<long> at(round % 50 == 0 ? LONG_MIN : uniform(random, -4, 7), uniform(random, -4, 7));
    const bool isWhole = a->rect().contains(from) && at.x() >= 0 && at.x() + from.width() <= b->width() &&
                         at.y() >= 0 && at.y() + from.height() <= b->height();
    for (const auto& [x, y] : cells(from)) {
      const long toX = at.x() == LONG_MIN ? -1 : at.x() + x - from.x0(), toY = at.y() + y - from.y0();
      const long to = toY * b->width() + toX, of = y * a->width() + x;
      if (a->rect().contains(x, y) && b->rect().contains(toX, toY)) expected.begin()[to] = before.begin()[of];
    }
    if (!isWhole) {
      EXPECT_THROW(a->copy(from, *b, at, false), qcPel::BadWindow);
    }
    a->copy(from, *b, at, !isWhole);
    b->pelsToVect(b->rect(), after);
    ASSERT_EQ(after, expected) << round;
  }
}

// --- buffers against a model ----------------------------------------------------------------------------------------

// The model knows the window in the root and the distance from image to root coordinates, which only `offset` changes.
struct Model {
  __extension__ typedef __int128 Wide;
  Wide rootW = 0, rootH = 0, x = 0, y = 0, w = 0, h = 0, toRootX = 0, toRootY = 0;

  static bool fits(Wide v) { return v >= INT32_MIN && v <= INT32_MAX; }
  bool isPlaced() const {
    return fits(x - toRootX) && fits(y - toRootY) && fits(x - toRootX + w) && fits(y - toRootY + h);
  }
};

// The part of [at, at + n) in [0, size) as start and length; negative when it lies apart.
std::pair<Model::Wide, Model::Wide> cut(Model::Wide at, Model::Wide n, Model::Wide size) {
  const Model::Wide low = at < 0 ? 0 : at, high = at + n > size ? size : at + n;
  return {low, high - low};
}

enum class Outcome { whole, clipped, refused };

Outcome modelWindowRoot(Model& m, Model::Wide x, Model::Wide y, Model::Wide w, Model::Wide h, bool clip) {
  if (w < 0 || h < 0) return Outcome::refused;
  Model next = m;
  const bool isInside = x >= 0 && y >= 0 && x + w <= m.rootW && y + h <= m.rootH;
  if (!isInside && !clip) return Outcome::refused;
  std::tie(next.x, next.w) = cut(x, w, m.rootW);
  std::tie(next.y, next.h) = cut(y, h, m.rootH);
  if (next.w < 0 || next.h < 0) next.x = next.y = next.w = next.h = 0;
  if (!next.isPlaced()) return Outcome::refused;
  m = next;
  return isInside ? Outcome::whole : Outcome::clipped;
}

Outcome outcome(const std::function<bool()>& act) {
  try {
    return act() ? Outcome::clipped : Outcome::whole;
  } catch (const qcPel::BadWindow&) {
    return Outcome::refused;
  }
}

// The root's pels hold their own place, so that reading through the window tells which pel was reached.
qcPtrHandle<qcPelRoot<qcPair<long>>> rootOfPlaces(long w, long h) {
  const qcPtrHandle<qcPelRoot<qcPair<long>>> root(new qcPelRoot<qcPair<long>>(w, h, 24));
  std::vector<qcPair<long>> places;
  for (long i = 0; i < w * h; ++i) places.emplace_back(i % w, i / w);
  root->vectToPels(root->rect(), places);
  return root;
}

void checkAgainst(const Model& m, const qcPelBuffer<qcPair<long>>& buffer) {
  buffer.repInvariant();
  const long x = static_cast<long>(m.x), y = static_cast<long>(m.y), w = static_cast<long>(m.w),
             h = static_cast<long>(m.h), dx = static_cast<long>(m.toRootX), dy = static_cast<long>(m.toRootY);
  ASSERT_EQ(buffer.windowRoot(), qcPelRect(x, y, w, h));
  ASSERT_EQ(buffer.offset(), qcPair<long>(x - dx, y - dy));
  forEachPel(qcPelRect(x - 1, y - 1, w + 2, h + 2), [&](long rx, long ry) {
    const long ix = rx - dx, iy = ry - dy;
    if (rx >= x && rx < x + w && ry >= y && ry < y + h) {
      ASSERT_EQ(buffer.get(ix, iy), qcPair<long>(rx, ry));
      ASSERT_EQ(qcPair<long>(buffer.pointToRow(iy)[rx - x]), qcPair<long>(rx, ry));
      ASSERT_TRUE(buffer.contains(buffer.pointToPel(ix, iy)));
    } else {
      ASSERT_THROW(buffer.get(ix, iy), qcPel::BadCoord) << ix << ' ' << iy;
    }
  });
}

TEST(Buffer, WindowsFollowTheModel) {
  Random random(3);
  const auto number = [&](bool isExtreme) {
    static constexpr long kExtremes[] = {
        0,           1, -1, INT32_MIN, INT32_MIN + 1L, INT32_MAX, INT32_MAX - 3L, LONG_MIN, LONG_MAX, INT32_MIN + 4L,
        LONG_MAX / 2};
    return isExtreme ? kExtremes[random() % std::size(kExtremes)] : uniform(random, -6, 14);
  };
  for (int round = 0; round < 300; ++round) {
    const auto start = [&] { return rootOfPlaces(uniform(random, 0, 6), uniform(random, 0, 6)); };
    qcPelBuffer<qcPair<long>> buffer(start());
    Model m;
    m.w = m.rootW = buffer.rep()->width();
    m.h = m.rootH = buffer.rep()->height();
    for (int step = 0; step < 60; ++step) {
      const bool isExtreme = random() % 8 == 0, clip = random() % 3 != 0;
      const long x = number(isExtreme), y = number(isExtreme && random() % 2), w = number(isExtreme && random() % 2),
                 h = number(isExtreme && random() % 2);
      Model next = m;
      Outcome wanted = Outcome::whole, got;
      switch (random() % 6) {
        case 0:
          wanted = modelWindowRoot(next, x, y, w, h, clip);
          got = outcome([&] { return buffer.windowRoot(x, y, w, h, clip); });
          break;
        case 1:
          wanted = modelWindowRoot(next, m.toRootX + x, m.toRootY + y, w, h, clip);
          got = outcome([&] { return buffer.window(x, y, w, h, clip); });
          break;
        case 2:
          wanted = x < 0 || y < 0 || Model::Wide{x} + w > m.w || Model::Wide{y} + h > m.h
                       ? Outcome::refused
                       : modelWindowRoot(next, m.x + x, m.y + y, w, h, false);
          got = outcome([&] { return buffer.subWindow(x, y, w, h), false; });
          break;
        case 3:
          wanted = modelWindowRoot(next, 0, 0, m.rootW, m.rootH, false);
          got = outcome([&] { return buffer.setEntire(), false; });
          break;
        case 4:
          next.toRootX = m.x - x, next.toRootY = m.y - y;
          if (!next.isPlaced()) next = m, wanted = Outcome::refused;
          got = outcome([&] { return buffer.offset(x, y), false; });
          break;
        default:
          qcPelBuffer<qcPair<long>> other(start());
          next.rootW = other.rep()->width(), next.rootH = other.rep()->height();
          wanted = modelWindowRoot(next, m.x, m.y, m.w, m.h, clip);
          if (wanted == Outcome::refused) next = m;
          got = outcome([&] { return buffer.bind(other, clip); });
          break;
      }
      m = next;
      ASSERT_EQ(got, wanted) << round << ' ' << step;
      checkAgainst(m, buffer);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(Buffer, UnboundBuffersHaveNoPels) {
  qcPelBuffer<long> buffer(6, 5);
  buffer.windowRoot(1, 2, 3, 2, false);
  buffer.setUnbound();
  EXPECT_THROW(buffer.put(1, 2, 3), qcPel::UnboundWindow);
  EXPECT_THROW(buffer.pointToRow(2), qcPel::UnboundWindow);
  EXPECT_THROW(buffer.windowRoot(0, 0, 1, 1, true), qcPel::UnboundWindow);
  EXPECT_THROW(buffer.copyToBuffer(nullptr), qcPel::UnboundWindow);
  EXPECT_THROW(buffer.windowRoot(0, 0, -1, 1, true), qcPel::BadWindow);
  EXPECT_EQ(buffer.pointToOffset(), nullptr);
  EXPECT_FALSE(buffer.bind(qcPelBuffer<long>(), true));
  EXPECT_TRUE(buffer.bind(qcPelBuffer<long>(3, 9), true));  // the window outlived its root
  EXPECT_EQ(buffer.windowRoot(), qcPelRect(1, 2, 2, 2));
}

TEST(Buffer, ContainsExactlyTheAddressesOfItsPels) {
  qcPelBuffer<unsigned short> part(5, 4, 16);
  const auto* const first = reinterpret_cast<const char*>(part.pointToOffset());
  part.windowRoot(1, 1, 3, 2, false);
  for (long byte = 0; byte < 64; ++byte) {  // rows of 16 bytes
    const bool isPel = byte / 16 >= 1 && byte / 16 < 3 && byte % 16 >= 2 && byte % 16 < 8 && byte % 2 == 0;
    ASSERT_EQ(part.contains(static_cast<const unsigned short*>(static_cast<const void*>(first + byte))), isPel) << byte;
  }
  EXPECT_FALSE(part.contains(nullptr));
}

TEST(Buffer, TypesDoNotMix) {
  qcPelBuffer<unsigned char> bytes(4, 4);
  const qcPelBuffer<signed char> others(4, 4);
  qc_PelBuffer &untyped = bytes, any = bytes;
  EXPECT_THROW(untyped = others, qcPel::Unknown);
  EXPECT_THROW(untyped.bind(others, true), qcPel::Unknown);
  any = others;
  EXPECT_TRUE(any.pelType() == qePelType::S8 && bytes.refc() == 1);
}

TEST(Buffer, SharingAndOrder) {
  qcPelBuffer<float> a(8, 8), b(a), other(8, 8);
  const qcXform<2> half(qcMatrix<2>(0.5, 0, 0, 0.25), qcVector<2>(3, 4));
  b.imageFromClientXform(half);
  EXPECT_EQ(b.clientFromImageXform(), half.inverse());
  EXPECT_TRUE(a == b && !(a < b) && !(b < a) && (a < other) != (other < a));  // transforms are not compared
  a.windowRoot(0, 0, 4, 8, false);
  b.windowRoot(3, 2, 2, 2, false);
  EXPECT_TRUE(a.sharesPels(b) && (a < b) != (b < a));
  b.windowRoot(4, 2, 2, 2, false);
  EXPECT_FALSE(a.sharesPels(b) || a.sharesPels(other) || qc_PelBuffer().sharesPels(qc_PelBuffer()));
  qc_PelRoot* const root = a.disconnectRoot();
  EXPECT_TRUE(!a.isBound() && root->refc() == 2 && qc_PelRoot::refDec(root) == 1);
}

TEST(Buffer, ValuesThatDoNotFitAreRefused) {
  const qcPelBuffer<qcPair<long>> pairs(2, 1);
  pairs.put(0, 0, {INT32_MIN, INT32_MAX});
  if constexpr (sizeof(long) > 4) {
    EXPECT_THROW(pairs.put(0, 0, {INT32_MAX + 1L, 0}), qcPelFunc::Range);
    EXPECT_THROW(qcPelBuffer<unsigned long>(1, 1).put(0, 0, ULONG_MAX), qcPelFunc::Range);
    EXPECT_THROW(pairs.rep()->vectToPels(pairs.windowRoot(), {{1, 2}, {3, LONG_MAX}}), qcPelFunc::Range);
  }
  EXPECT_EQ(pairs.get(0, 0), qcPair<long>(INT32_MIN, INT32_MAX));
}

TEST(Buffer, PackedArraysAndPlanesCarryTheWindow) {
  const qcPelBuffer<qc3PlanePel> planar(5, 3);
  std::vector<qc3PlanePel> pels, part(6), same;
  for (unsigned char v = 0; v < 15; ++v) pels.emplace_back(v, v + 50, v + 100);
  planar.copyFromBuffer(pels.data());
  qcPelBuffer<qc3PlanePel> window(planar);
  window.window(1, 1, 3, 2, false);
  window.offset(-7, 9);
  window.copyToBuffer(part.data());
  window.rep()->pelsToVect(window.windowRoot(), same);
  EXPECT_EQ(part, same);
  const qc3PlanePelRef_const pel = window.get(-6, 10);
  EXPECT_EQ(pel, pels[12]);
  window.planeBuffer(2).put(-6, 10, 5);  // the planes are the image's own
  EXPECT_EQ(pel, qc3PlanePel(12, 62, 5));
  window.put(-6, 10, {1, 2, 3});
  EXPECT_EQ(planar.get(2, 2), qc3PlanePel(1, 2, 3));
  EXPECT_THROW(window.get(-8, 9), qcPel::BadCoord);
  EXPECT_THROW(window.planeBuffer(3), qcPelFunc::BadParams);

  qcPelBuffer<double> reals(4, 4);
  reals.subWindow(1, 1, 2, 2);
  double row[] = {1, 2, 3, 4}, back[4];
  reals.copyFromBuffer(row);
  reals.copyToBuffer(back);
  EXPECT_TRUE(std::equal(row, row + 4, back) && reals.get(2, 1) == 2 && reals.get(1, 2) == 3);
}

constexpr wchar_t kEof[] = L"qcArchive::Eof", kContent[] = L"qcArchive::BadContent";

// What loading comes to: "ok" or the error's type, with its class where that is what the text tells.
std::wstring outcomeOf(const std::function<void()>& act) {
  const std::wstring error = errorOf(act);
  return error.empty() ? L"ok" : error.substr(0, error.find(L": thrown"));
}

TEST(RootArchive, APlaneThatIsLoadedByItselfHasItsOwnRows) {
  qcPelBuffer<qc3PlanePel> image(3, 100), empty(0, 0);
  qcPelRoot<unsigned char> unpadded(3, 100, 1);
  std::memset(unpadded.pels(), 7, 300);
  const auto bytes = archived(kLittle, false, unpadded);
  load(bytes, *image.planeBuffer(0).rep());
  image.put(2, 99, {8, 9, 10});
  EXPECT_TRUE(image.planeBuffer(0).get(2, 99) == 8 && image.get(1, 99).plane0() == 7);
  qcPelBuffer<qc3PlanePel> back(image);
  load(archived(kBig, false, image), back);
  back.repInvariant();
  EXPECT_TRUE(back.get(2, 99) == qc3PlanePel(8, 9, 10) && back.get(2, 50).plane0() == 7);
  load(bytes, *empty.planeBuffer(0).rep());
  EXPECT_EQ(outcomeOf([&] { archived(kLittle, false, empty); }), kContent);
  empty.rep()->copy(image.rep()->rect(), *image.rep(), {0, 0}, true);
  EXPECT_EQ(image.get(2, 99).plane0(), 8);  // an empty image has nothing to copy, whatever its plane holds
}

template <class T>
std::wstring loadRoot(const std::string& hex, qcPelRoot<T>& root) {
  return outcomeOf([&] { load(fromHex("0201 F1664BDF" + hex), root); });
}

TEST(RootArchive, HostileHeadersTakeNoMemory) {
  qcPelRoot<unsigned char> root(1, 1);
  // Beyond the address space: an allocation would throw std::bad_alloc.
  EXPECT_EQ(loadRoot("000000 00007F7F 00007F7F 01000000 00000000 01020304", root), kEof);
  EXPECT_EQ(loadRoot("000000 01000000 01000000 00000100 06000000 AA BB CC", root), L"ok");
  EXPECT_EQ(*root.pels(), 0xCC);  // two optional values were skipped
  qcPelRoot<double> reals;
  EXPECT_EQ(loadRoot("000000 FFFFFF7F FFFFFF7F 01000000 00000000", reals), kEof);  // 65 bits of bytes
  // A byte that unfolds into 64 KiB, and two.
  EXPECT_EQ(loadRoot("000000 01000000 01000000 00000100 00000000 77", root), L"ok");
  EXPECT_EQ(loadRoot("000000 01000000 02000000 00000100 00000000 7777", root), kContent);
  unsigned char memory[2] = {};
  qcPelRoot<unsigned char> column(1, 2, 1, memory, 65536);
  EXPECT_EQ(outcomeOf([&] { stored(kLittle, false, column); }), kContent);  // nobody could read it
}

TEST(RootArchive, WindowsKeepTheirRootWhenItIsLoadedInPlace) {
  const qcPelBuffer<unsigned char> image(2, 1);
  image.put(1, 0, 9);
  EXPECT_EQ(loadRoot("000000 01000000 01000000 01000000 00000000 05", *image.rep()), kContent);
  EXPECT_EQ(loadRoot("000000 00000000 00000000 01000000 00000000", *image.rep()), kContent);
  EXPECT_EQ(image.get(1, 0), 9);
  EXPECT_EQ(loadRoot("000000 02000000 01000000 01000000 00000000 0506", *image.rep()), L"ok");
  EXPECT_EQ(image.get(1, 0), 6);
}

TEST(RootArchive, ImagesArriveThroughPipes) {
  using Root = qcPelRoot<unsigned short>;
  Root root(1500, 1400, 64), loaded;  // more than one piece, padded
  Random random(4);
  std::vector<unsigned short> pels(1500 * 1400), back;
  for (auto& pel : pels) pel = static_cast<unsigned short>(random());
  root.vectToPels(root.rect(), pels);
  std::string bytes = archived(kBig, false, root);
  loadFromPipe(bytes, loaded);
  loaded.pelsToVect(loaded.rect(), back);
  EXPECT_EQ(back, pels);
  bytes.pop_back();
  EXPECT_THROW(loadFromPipe(bytes, loaded), qcArchive::Eof);
  const std::string huge = fromHex("0201 F1664BDF 000000 00007F7F 00007F7F 01000000 00000000 0102");
  EXPECT_THROW(loadFromPipe(huge, loaded), qcArchive::Eof);
}

TEST(BufferArchive, BuffersOfOneRootShareItAgain) {
  qcPelBuffer<double> whole(64, 64), part(whole), other(0, 0), wholeBack, partBack, otherBack;
  std::memset(static_cast<void*>(whole.rep()->pels()), 0, 64 * 64 * 8);
  part.window(3, 4, 5, 6, false);
  const std::string bytes = archived(kBig, false, whole, part, other);
  EXPECT_LT(bytes.size(), 64u * 64 * 8 + 2000);  // the pels once
  load(bytes, wholeBack, partBack, otherBack);
  EXPECT_TRUE(partBack.sharesPels(wholeBack) && wholeBack.refc() == 2 && otherBack.isBound());
  wholeBack.put(3, 4, 99);
  EXPECT_EQ(partBack.get(3, 4), 99);
}

// Writes any version of the layout, field by field.
std::string oldLayout(unsigned char version, const qcPelRect& window, qcPair<long> offset, qcPtrHandle<qc_PelRoot> root,
                      const qcXform<2>& xform) {
  qcMemoryArchive out(kLittle, false);
  qcRectangle<long> rectangle = window;
  out || version || rectangle;
  qcXform<2> plain = xform;
  qcPtrHandle<qc2XformBase> forward(new qc2XformLinear(xform)), inverse(new qc2XformLinear(xform.inverse()));
  if (version >= 1) out || offset;
  if (version == 1) out || plain;
  if (version == 2) out || forward || inverse;
  qc2XformCache cache(forward, inverse);
  if (version >= 3) out || cache;
  out || root;
  return bytesOf(out);
}

TEST(BufferArchive, EveryVersionIsRead) {
  const qcXform<2> xform(qcMatrix<2>(2, 0, 0, 4), qcVector<2>(1, -1));
  qcPelBuffer<qcPair<long>> loaded;
  for (unsigned char version = 0; version < 4; ++version) {
    const auto bytes = oldLayout(version, qcPelRect(1, 2, 3, 2), {10, 20}, rootOfPlaces(5, 4), xform);
    loaded = qcPelBuffer<qcPair<long>>();
    loaded.clientFromImageXform(xform * xform);
    load(bytes, loaded);
    EXPECT_EQ(loaded.windowRoot(), qcPelRect(1, 2, 3, 2));
    EXPECT_EQ(loaded.offset(), version == 0 ? qcPair<long>(0, 0) : qcPair<long>(10, 20));
    EXPECT_EQ(loaded.clientFromImageXform(), version == 0 ? qcXform<2>() : xform);
    EXPECT_EQ(loaded.imageFromClientXform(), version == 0 ? qcXform<2>() : xform.inverse());
    EXPECT_EQ(loaded.get(loaded.offset() + qcPair<long>(1, 1)), qcPair<long>(2, 3));
    EXPECT_EQ(archived(kLittle, false, loaded) == bytes, version == 3);
  }
  EXPECT_EQ(errorOf([&] { load(oldLayout(4, {}, {}, {}, xform), loaded); }),
            L"qcArchive::UnknownVersion: thrown from file: std/pelbuf/pbuf_com, line: 744");
}

TEST(BufferArchive, PlanesAreStoredAnewWhenTheirImageChanges) {
  const qcPelBuffer<qc3PlanePel> image(1, 1);
  image.put(0, 0, {1, 2, 3});
  qcPelBuffer<unsigned char> plane = image.planeBuffer(1), before, after;
  qcMemoryArchive out(kLittle, false);
  out || plane;
  image.put(0, 0, {4, 5, 6});
  out || plane;
  load(bytesOf(out), before, after);
  EXPECT_TRUE(before.get(0, 0) == 2 && after.get(0, 0) == 5);
}

}  // namespace
