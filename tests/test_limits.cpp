// What errors of loads know of their place, and the limits of loads.

#include "support/archivable.h"
#include "support/bytes.h"
#include "support/faulty.h"
#include "support/test.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/math/vector.h"

// A list whose fields can be made wrong. It is named in errors.
struct Link : Archivable<Link>, qcRepBase {
  void fields(qcArchive& archive) {
    archive || name || data || next;
    if (archive.isLoading() && name == "bad") throw qcInvariantFailure();
  }
  std::string name;
  std::vector<float> data;
  qcPtrHandle<Link> next;
};

namespace {

qcPtrHandle<Link> chainOf(int links, const std::string& lastName = "last") {
  qcPtrHandle<Link> first;
  for (int i = 0; i < links; ++i) {
    qcPtrHandle<Link> link(new Link);
    link->name = i == 0 ? lastName : "link";
    link->data = {1, 2, 3};
    link->next = first;
    first = link;
  }
  return first;
}

/// What the error that `act` throws knows of its place; its text without one when it knows nothing.
std::string placeOf(const std::function<void()>& act) {
  try {
    act();
    return "no error";
  } catch (const qcException& error) {
    const qcException& shared = error;
    return shared.loadContext() ? shared.loadContext()->text() : "no place";
  }
}

template <class T>
std::string placeOfLoad(const std::string& bytes, bool seekable = false) {
  return placeOf([&] {
    BytesArchive archive(bytes, seekable);
    T value{};
    *archive || value;
  });
}

using Handle = qcPtrHandle<Link>;

TEST(Contexts, SayWhatWasFoundWhere) {
  const std::string link = stored(kBig, false, chainOf(1));
  const auto with = [](std::string bytes, std::size_t at, const char* hex) {
    return headOf(kBig) + bytes.replace(at, fromHex(hex).size(), fromHex(hex));
  };
  EXPECT_EQ(placeOfLoad<int>(""), "at byte 0: expected 1 byte, found 0");
  EXPECT_EQ(placeOfLoad<int>(fromHex("0207")), "at byte 2: expected an ordering of 0 or 1, found 7");
  EXPECT_EQ(placeOfLoad<int>(fromHex("0200 0102")), "at byte 2: expected 4 bytes, found 2");
  EXPECT_EQ(placeOfLoad<std::vector<short>>(fromHex("0200 00000003 00010002")),
            "at byte 10: expected 2 bytes, found 0");
  EXPECT_EQ(placeOfLoad<std::string>(fromHex("0200 03 22 4142")), "at byte 4: expected 3 bytes of text, found 2");
  EXPECT_EQ(placeOfLoad<std::string>(fromHex("0200 01 2241 21")), "at byte 6: expected a closing quote, found 21");
  EXPECT_EQ(placeOfLoad<std::wstring>(fromHex("0200 01 22FF22")), "at byte 6");
  EXPECT_EQ(placeOfLoad<qcVector<2>>(fromHex("0200 07")), "at byte 3: expected a version up to 0, found 7");
  EXPECT_EQ(placeOfLoad<std::vector<qcVector<2>>>(fromHex("0200 00000001 07") + std::string(16, ' ')),
            "at byte 23: expected a version up to 0, found 7");
  EXPECT_EQ(placeOfLoad<int>(fromHex("0300")), "at byte 1: expected a plain archive, found a seekable archive");
  EXPECT_EQ(placeOfLoad<int>(fromHex("0300 4FE570"), true), "at byte 2: expected 42 bytes, found 3");
  EXPECT_EQ(placeOfLoad<Handle>(with(link, 3, "99")),
            "at byte 12: expected a pointer (4F E5 70 54 or 55), found 4F E5 70 99");
  EXPECT_EQ(placeOfLoad<Handle>(with(link, 26, "00")),
            "at byte 31, in Link: expected an object F1 66 4B DF, found F1 00 4B DF");
  EXPECT_EQ(placeOfLoad<Handle>(headOf(kBig) + stored(kBig, false, chainOf(3)).substr(0, 152)),
            "at byte 152, in Link > Link > Link: expected 12 bytes, found 2");
  EXPECT_EQ(placeOfLoad<Handle>(headOf(kBig) + stored(kBig, false, chainOf(2, "bad"))), "at byte 127, in Link > Link");
}

TEST(Contexts, KeepBothEndsOfALongPath) {
  const std::string bytes = archived(kBig, false, chainOf(40)), end = bytes.substr(0, bytes.size() - 1);
  std::string links = "Link";
  for (int i = 1; i < 16; ++i) links += " > Link";
  EXPECT_EQ(placeOfLoad<Handle>(end), "at byte " + std::to_string(bytes.size() - 8) + ", in " + links + " > ... > " +
                                          links + ": expected 8 bytes, found 7");
}

TEST(Contexts, AreOfLoadsAlone) {
  EXPECT_EQ(placeOf([] { static_cast<void>(qcMemoryArchive(kBig, false).findMark(1)); }), "no place");
  EXPECT_EQ(placeOf([] { archived(kBig, false, std::string(40000, ' ')); }), "no place");
}

using Limit = qcLoadContext::Limit;

/// The limit that `load` exceeds; none when it succeeds.
Limit exceeded(const std::function<void()>& load) {
  try {
    load();
    return Limit::none;
  } catch (const qcException& error) {
    EXPECT_TRUE(error.loadContext() && error.loadContext()->limit != Limit::none);
    EXPECT_EQ(error.errorNumber(), qcArchive::BadContent().errorNumber());
    return error.loadContext() ? error.loadContext()->limit : Limit::none;
  }
}

/// The smallest value of a limit that lets `load` through; every smaller one must be exceeded.
template <class Field>
long long least(Field qcArchiveLimits::*field, Limit limit, const std::function<void(const qcArchiveLimits&)>& load) {
  for (Field value = 0;; ++value) {
    qcArchiveLimits limits;
    limits.*field = value;
    const Limit met = exceeded([&] { load(limits); });
    if (met == Limit::none) return value;
    EXPECT_EQ(met, limit) << value;
    if (met != limit || ::testing::Test::HasFailure()) return -1;
  }
}

/// What a load takes at least: bytes, nesting, objects, elements.
using Cost = std::array<long long, 4>;
Cost costOf(const std::function<void(const qcArchiveLimits&)>& load) {
  return {least(&qcArchiveLimits::bytes, Limit::bytes, load), least(&qcArchiveLimits::nesting, Limit::nesting, load),
          least(&qcArchiveLimits::objects, Limit::objects, load),
          least(&qcArchiveLimits::elements, Limit::elements, load)};
}

template <class T>
auto loading(const std::string& bytes, bool seekable, std::size_t chunk, int times = 1) {
  return [=](const qcArchiveLimits& limits) {
    FaultyBuffer medium(bytes, {.chunk = chunk});
    StreamArchive archive(medium, qcArchive::loading, kLittle, seekable);
    archive.limits(limits);
    std::vector<T> values(static_cast<std::size_t>(times));
    for (T& value : values) archive || value;
  };
}

TEST(Limits, AreExact) {
  for (const bool seekable : {false, true}) {
    const std::string head = headOf(kLittle, seekable), chain = stored(kLittle, seekable, chainOf(5));
    const auto size = static_cast<long long>(chain.size());
    // A link has a text of 4 and a vector of 3; its class has a name of 4, which comes twice in a seekable archive.
    const long long each = seekable ? 15 : 11;
    for (const std::size_t chunk : {1U, 7U, 64U, 100000U}) {
      SCOPED_TRACE(chunk);
      EXPECT_EQ(costOf(loading<Handle>(head + chain, seekable, chunk)), (Cost{size, 5, 5, 5 * each}));
      // A copy of what is known is skipped, or read to no end, and counts.
      if (!seekable) {
        EXPECT_EQ(costOf(loading<Handle>(head + chain + chain, false, chunk, 2)), (Cost{2 * size, 5, 10, 10 * each}));
      }
    }
    const std::string numbers = stored(kLittle, seekable, std::vector<double>{1, 2, 3}, std::vector<bool>(9));
    const auto load = [&](const qcArchiveLimits& limits) {
      BytesArchive archive(head + numbers, seekable);
      archive->limits(limits);
      std::vector<double> doubles;
      std::vector<bool> bits;
      *archive || doubles || bits;
    };
    EXPECT_EQ(costOf(load), (Cost{4 + 24 + 4 + 9, 0, 0, 12}));
  }
}

TEST(Limits, LeaveTheMediumWhereReadingHasEnded) {
  std::stringbuf medium(headOf(kBig) + stored(kBig, false, 1, 2, 3) + headOf(kBig) + stored(kBig, false, 4, 5, 6));
  for (const int expected : {1, 4}) {
    StreamArchive archive(medium, qcArchive::loading);
    archive.limits({.bytes = 1000});
    int first = 0, second = 0, third = 0;
    archive || first || second || third;
    EXPECT_EQ(first, expected);
  }
}

TEST(Limits, NameTheClassesThatMayBeMade) {
  const std::string bytes = headOf(kBig) + stored(kBig, false, chainOf(2));
  BytesArchive archive(bytes + bytes.substr(2));
  Handle handle;
  *archive || handle;
  archive->limits({.classes = qcArchiveLimits::Names{"qcException", "Linking"}});
  const std::string place = placeOf([&] { *archive || handle; });
  EXPECT_EQ(place,
            "at byte 153: exceeds the limit of classes, expected one of the classes that are allowed, found Link");
  EXPECT_EQ(errorOf([&] {
              BytesArchive again(bytes);
              again->limits({.classes = qcArchiveLimits::Names{}});
              *again || handle;
            }),
            L"qcArchive::UnknownType: Link; thrown from file: archutil, line: 1970");
}

}  // namespace
