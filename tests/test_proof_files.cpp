// Databases in files whose every call of the system fails in its turn, and programs that are killed at any of them.

#include <csignal>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/archivable.h"
#include "support/folder.h"
#include "vnxstd/archive.h"
#include "vnxstd/vdb.h"

namespace {

enum class Call { read, write, seek, sync, close };

/// Which call goes wrong, and how.
struct Plan {
  static constexpr int kKill = -1;
  Call call = Call::read;
  int at = -1;           // the number of the call; none goes wrong below 0
  int error = 0;         // errno; kKill: the process ends
  bool onwards = false;  // and all calls behind it
  int quarters = 0;      // how much of a write reaches the file before it goes wrong
  int seen = 0;
  bool reached() const { return at >= 0 && seen > at; }
} plan;

bool goesWrong(Call call) {
  if (call != plan.call || plan.at < 0) return false;
  const int number = plan.seen++;
  return number == plan.at || (plan.onwards && number > plan.at);
}

/// The C library's own function of a name.
template <class Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void refuse(FILE* stream) {
  stream->_flags |= 0x20;  // as ferror finds it
  errno = plan.error;
}

}  // namespace

// The library's calls arrive here: the program's own functions go before those of the C library.
extern "C" std::size_t fread(void* bytes, std::size_t size, std::size_t count, FILE* stream) {
  static const auto read = real<decltype(fread)>("fread");
  return goesWrong(Call::read) ? refuse(stream), 0 : read(bytes, size, count, stream);
}
extern "C" std::size_t fwrite(const void* bytes, std::size_t size, std::size_t count, FILE* stream) {
  static const auto write = real<decltype(fwrite)>("fwrite");
  if (!goesWrong(Call::write)) return write(bytes, size, count, stream);
  const std::size_t put = write(bytes, size, count * static_cast<std::size_t>(plan.quarters) / 4, stream);
  if (plan.error == Plan::kKill) raise(SIGKILL);
  refuse(stream);
  return put;
}
extern "C" int fseeko64(FILE* stream, off64_t offset, int origin) {
  static const auto seek = real<decltype(fseeko64)>("fseeko64");
  return goesWrong(Call::seek) ? refuse(stream), -1 : seek(stream, offset, origin);
}
extern "C" int fclose(FILE* stream) {
  static const auto close = real<decltype(fclose)>("fclose");
  const bool wrong = goesWrong(Call::close);
  close(stream);
  return wrong ? errno = plan.error, -1 : 0;
}
extern "C" int fsync(int) { return goesWrong(Call::sync) ? errno = plan.error, -1 : 0; }

namespace {

struct Entry : Archivable<Entry, qcVDBRecordBase> {
  explicit Entry(int v = 0) : value(v), text(static_cast<std::size_t>(v) * 37 % 400, 'x') {}
  void fields(qcArchive& archive) { archive || value || text; }
  int value;
  std::string text;
};

/// A change of a database: what record `number` holds from then on. It is nothing once it is removed.
struct Change {
  long number = 0;
  int value = 0, grade = 0;
};
using Changes = std::vector<Change>;

qcVDBHeader graded(int grade) {
  qcVDBHeader header;
  header.currentGrade(static_cast<qcVDB::Grade>(grade));
  return header;
}

/// A database file of its own. `done` tells what was done, and `begun` what has been begun last.
class Files : public InFolder {
 protected:
  Files() { plan = Plan(); }
  ~Files() override { plan = Plan(); }

  /// Holds the file against what was done; `begun` may have happened or not. Nothing else is there, and the file takes
  /// another record.
  void check(const std::map<long, Change>& kept, const Change& begun) {
    qcVDBArchive database(path(), false, false);
    EXPECT_EQ(database.archive().damaged(), qcArchive::Position(0));
    std::set<long> numbers;
    for (long number = database.firstRecord(); number != 0; number = database.nextRecord()) {
      numbers.insert(number);
      const qcVDBHeader header = database.loadHeader();
      const std::unique_ptr<qcVDBRecordBase> record(database.loadRecord());
      const auto* entry = dynamic_cast<const Entry*>(record.get());
      ASSERT_TRUE(entry);
      EXPECT_EQ(entry->text, Entry(entry->value).text);
      const auto found = kept.find(number);
      const bool asBegun = number == begun.number && entry->value == begun.value;
      ASSERT_TRUE(found != kept.end() || asBegun) << number;
      if (found == kept.end()) continue;
      EXPECT_TRUE(entry->value == found->second.value || asBegun) << number;
      const int grade = static_cast<int>(header.currentGrade());
      EXPECT_TRUE(grade == found->second.grade || (asBegun && grade == begun.grade)) << number << ' ' << grade;
    }
    for (const auto& [number, change] : kept)
      EXPECT_TRUE(numbers.count(number) != 0 || (number == begun.number && begun.value == 0)) << number;
    const Entry next(12345);
    database.gotoRecord(database.storeNewRecord(&next));
    const std::unique_ptr<qcVDBRecordBase> again(database.loadRecord());
    EXPECT_EQ(dynamic_cast<Entry&>(*again).value, 12345);
    EXPECT_EQ(database.archive().unfinished(), qcArchive::Position(0));
  }
};

void enter(std::map<long, Change>& kept, const Change& change) {
  if (change.value == 0) {
    kept.erase(change.number);
  } else {
    kept[change.number] = change;
  }
}

/// Does `changes` one after the other, telling each before and after.
void make(qcVDBArchive& database, const Changes& changes, std::map<long, Change> state,
          const std::function<void(const Change&, bool done)>& tell) {
  for (const Change& change : changes) {
    const auto old = state.find(change.number);
    tell(change, false);
    if (old == state.end()) {
      Entry entry(change.value);
      entry.header().recordNum(change.number);
      entry.header().currentGrade(static_cast<qcVDB::Grade>(change.grade));
      database.storeNewRecord(&entry);
    } else {
      database.gotoRecord(change.number);
      if (change.value == 0) {
        database.removeRecord();
      } else if (change.value == old->second.value) {
        database.replaceGrade(graded(change.grade));
      } else {
        Entry entry(change.value);
        entry.header().currentGrade(static_cast<qcVDB::Grade>(change.grade));
        database.replaceRecord(&entry);
      }
    }
    tell(change, true);
    enter(state, change);
  }
}

TEST_F(Files, KeepWhatWasAcknowledgedWhereverTheProgramIsKilled) {
  Changes changes;  // 100 records, 20 grades, 10 removals
  for (int i = 1; i <= 100; ++i) {
    changes.push_back({i, i, 1});
    if (i % 5 == 0) changes.push_back({i - 2, i - 2, 2});
    if (i % 10 == 0) changes.push_back({i - 4, 0, 0});
  }
  int kills = 0;
  for (int at = 0, alive = 0; alive == 0; at += kInstrumented ? 11 : 1) {
    for (const int quarters : {0, 1, 2, 4}) {
      std::filesystem::remove(path());
      int ends[2];
      ASSERT_EQ(pipe(ends), 0);
      const pid_t child = fork();
      if (child == 0) {
        { qcVDBArchive created(path(), true, false); }
        plan = {.call = Call::write, .at = at, .error = Plan::kKill, .quarters = quarters};
        {
          qcVDBArchive database(path(), false, false);
          make(database, changes, {}, [&](const Change&, bool done) {
            if (::write(ends[1], &done, 1) != 1) _exit(2);
          });
        }
        _exit(0);
      }
      close(ends[1]);
      std::map<long, Change> kept;
      Change begun;
      auto next = changes.begin();
      for (bool done; ::read(ends[0], &done, 1) == 1;) {
        begun = done ? Change() : *next;
        if (done) enter(kept, *next++);
      }
      close(ends[0]);
      int status = 0;
      waitpid(child, &status, 0);
      ASSERT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
      alive += WIFEXITED(status) ? 1 : 0;
      kills += WIFSIGNALED(status) ? 1 : 0;
      check(kept, begun);
      ASSERT_FALSE(HasFailure()) << "killed at write " << at << ", " << quarters << " quarters of it written";
    }
  }
  std::printf("killed %d times\n", kills);
}

TEST_F(Files, KeepWhatWasAcknowledgedWhicheverCallFails) {
  std::map<long, Change> base;
  {
    qcVDBArchive database(path(), true, false);
    make(database, {{1, 1, 1}, {2, 2, 1}, {3, 300, 1}, {7, 7, 1}}, {},
         [&](const Change& change, bool) { base[change.number] = change; });
  }
  std::filesystem::copy_file(path(), path("kept"));
  const Changes operations[] = {{},          {{4, 4, 1}, {5, 255, 3}}, {{2, 2, 2}}, {{3, 33, 2}},
                                {{7, 0, 0}}, {{7, 0, 0}, {7, 8, 2}}};
  const Plan faults[] = {{.call = Call::read, .error = EIO},
                         {.call = Call::read, .error = EINTR},
                         {.call = Call::write, .error = EIO},
                         {.call = Call::write, .error = ENOSPC, .quarters = 1},
                         {.call = Call::write, .error = ENOSPC, .quarters = 3},
                         {.call = Call::write, .error = EINTR, .quarters = 2},
                         {.call = Call::seek, .error = EIO},
                         {.call = Call::sync, .error = EIO},
                         {.call = Call::sync, .error = ENOSPC},
                         {.call = Call::close, .error = EIO}};
  int failures = 0;
  for (const Plan& fault : faults) {
    for (const bool onwards : {false, true}) {
      if (onwards && fault.error == EINTR) continue;  // a signal every time: tried for as long as it takes
      for (std::size_t operation = 0; operation < std::size(operations); ++operation) {
        bool reached = true;
        for (int at = 0; reached; ++at) {
          std::filesystem::copy_file(path("kept"), path(), std::filesystem::copy_options::overwrite_existing);
          std::map<long, Change> kept = base;
          Change begun;
          bool failed = false;
          plan = fault, plan.onwards = onwards, plan.at = at;
          try {
            qcVDBArchive database(path(), false, false);
            for (long number = database.firstRecord(); number != 0; number = database.nextRecord()) {
              const std::unique_ptr<qcVDBRecordBase> record(database.loadRecord());
              EXPECT_EQ(dynamic_cast<Entry&>(*record).value, base[number].value);
            }
            make(database, operations[operation], base, [&](const Change& change, bool done) {
              begun = done ? Change() : change;
              if (done) enter(kept, change);
            });
            database.sync();
          } catch (const qcArchive::Errors&) {
            failed = true;
          }
          reached = plan.reached();
          failures += failed ? 1 : 0;
          plan = Plan();
          const bool harmless = fault.error == EINTR || fault.call == Call::close;
          // Without a seek to its end, a file does not tell how long it is; it is read all the same.
          EXPECT_TRUE(failed == (reached && !harmless) || (reached && fault.call == Call::seek));
          check(kept, begun);
          ASSERT_FALSE(HasFailure()) << "call " << static_cast<int>(fault.call) << ' ' << at << ", errno "
                                     << fault.error << (onwards ? " and on" : "") << ", operation " << operation;
        }
      }
    }
  }
  std::printf("%d failures\n", failures);
}

}  // namespace
