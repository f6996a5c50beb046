// vnx: measures features in bitmaps, finds regions, and says and draws what files hold.

#include <CLI/CLI.hpp>

#if !defined(_WIN32)
#include <fcntl.h>
#endif

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <vector>

#include "blobscommand.h"
#include "dbcommand.h"
#include "demo.h"
#include "dumpcommand.h"
#include "exitstatus.h"
#include "files.h"
#include "gaugecommand.h"
#include "info.h"
#include "rendercommand.h"
#include "verifycommand.h"

namespace {

constexpr const char* kCommands = "gauge, blobs, render, db, dump, verify, info and demo";

// Commands say themselves what is missing: no argument is marked as required. One that is not needed has a default.
class Help : public CLI::Formatter {
  std::string make_option_usage(const CLI::Option* option) const override {
    const bool isNeeded = option->get_positional() && option->get_default_str().empty();
    return isNeeded ? make_option_name(option, true) : CLI::Formatter::make_option_usage(option);
  }
};

// The command that was called, from the program's name to that of a command of a command.
std::vector<const CLI::App*> calledOf(const CLI::App& app) {
  std::vector<const CLI::App*> called{&app};
  while (!called.back()->get_subcommands().empty()) called.push_back(called.back()->get_subcommands().front());
  return called;
}

std::string nameOf(const CLI::App& app) {
  std::string name;
  for (const CLI::App* command : calledOf(app)) name += (name.empty() ? "" : " ") + command->get_name();
  return name;
}

// The file that a call is about: the first argument of its command.
std::string fileOf(const CLI::App& app) {
  for (const CLI::Option* option : calledOf(app).back()->get_options())
    if (option->get_positional() && option->count() != 0) return option->results().front();
  return "the call";
}

void sayWrong(const CLI::App& app, const std::string& reason) {
  std::cerr << nameOf(app) << ": " << reason << '\n' << nameOf(app) << " --help says what can be asked.\n";
}

// A file that is opened gets the first number that is free: were it that of a closed standard stream, what is printed
// would be written into the file. Taken so that reading and writing fail as if it was closed.
bool takeClosedStreams() {
#if !defined(_WIN32)
  for (const int stream : {0, 1, 2})
    if (::fcntl(stream, F_GETFD) == -1 && ::open("/dev/null", stream == 0 ? O_WRONLY : O_RDONLY) != stream)
      return false;
#endif
  return true;
}

int run(int argc, char** argv) {
  CLI::App app{"Measures features in bitmaps, finds regions, and says and draws what bitmaps and archives hold", "vnx"};
  app.formatter(std::make_shared<Help>());
  app.set_version_flag("--version", "vnx " VNXSTD_VERSION);
  app.require_subcommand(0, 1);
  const GaugeCommand gauge(app);
  const BlobsCommand blobs(app);
  const RenderCommand render(app);
  const DbCommand db(app);
  const DumpCommand dump(app);
  const VerifyCommand verify(app);
  std::string file;
  CLI::App* info = app.add_subcommand("info", "Say what a bitmap, an archive or a tool database holds");
  info->add_option("file", file, "A bitmap, an archive or a tool database, of any program");
  CLI::App* demo = app.add_subcommand(
      "demo", "Draw parts, measure them and compare with the truth; writes its files into the current folder");
  app.footer(
      "Exit status: 0 done, 1 nothing found (demo: or out of tolerance), 2 a wrong call, 3 a file is malformed, 4 a "
      "limit\n"
      "was exceeded, 5 reading or writing failed");
  try {
    app.parse(argc, argv);
    if (gauge.wanted()) return gauge.run() ? kGood : kNotFound;
    if (blobs.wanted()) return blobs.run() ? kGood : kNotFound;
    if (db.wanted()) return db.run();
    if (dump.wanted()) return dump.run();
    if (verify.wanted()) return verify.run();
    if (render.wanted()) return render.run() ? kGood : kNotFound;
    if (demo->parsed()) return runDemo(std::cout) ? kGood : kNotFound;
    if (!info->parsed()) throw WrongCall(std::string("which command? There are ") + kCommands);
    if (file.empty()) throw WrongCall("which file?");
    describeFile(file, std::cout);
    return kGood;
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // a call for help
    std::string reason = error.what();
    if (app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-')
      reason = '"' + std::string(argv[1]) + "\" is no command; there are " + kCommands;
    sayWrong(app, reason);
  } catch (const WrongCall& error) {
    sayWrong(app, error.what());
  } catch (const std::bad_alloc&) {
    throw FileError(fileOf(app), "memory does not suffice for what it holds", Fault::limit);
  }
  return kWrongCall;
}

}  // namespace

int main(int argc, char** argv) {
  if (!takeClosedStreams()) return kMediumFailed;
#if defined(SIGXFSZ)
  std::signal(SIGXFSZ, SIG_IGN);  // past the largest file that is allowed, writing fails as on a full medium
#endif
  try {
    const int status = run(argc, argv);
    errno = 0;
    if (std::cout.flush() && std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    throw outputError();
  } catch (const FileError& error) {
    std::cout.flush();
    std::cerr << "vnx: " << error.what() << '\n';
    return exitOf(error.fault());
  } catch (const qcException& error) {
    std::cerr << "vnx: " << textOf(error) << '\n';
    return exitOf(faultOf(error));
  } catch (const std::bad_alloc&) {
    std::cerr << "vnx: memory does not suffice\n";
    return kLimitExceeded;
  } catch (const std::exception& error) {
    std::cerr << "vnx: " << error.what() << '\n';
  }
  return kMediumFailed;
}
