// sorn: runs the library's operations on image files from the command line.
//
// A subcommand is one entry in the table below and one run_* function; the
// rest (help, errors, exit codes) is handled here for all of them.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "cli.h"

#ifndef SORN_TOOL_VERSION
#define SORN_TOOL_VERSION "unknown"
#endif

namespace sorn::tool {

namespace {

void print_usage(std::FILE *out) {
  std::fprintf(out,
               "usage: sorn COMMAND [ARGS...]\n"
               "       sorn COMMAND --help\n"
               "\n"
               "Image-processing operations of the Sorn library on PNG, PGM and PPM files\n"
               "(8-bit grey, grey+alpha, RGB, RGBA). Without an IMAGE argument a command\n"
               "works on a generated default picture.\n"
               "\n"
               "commands:\n");
  for (const Command &c : commands()) std::fprintf(out, "  %-7s %s\n", c.name, c.summary);
  std::fprintf(out,
               "\n"
               "exit status: 0 success, 1 bad input or failed operation, 2 bad usage\n");
}

const Command *find_command(const std::string &name) {
  for (const Command &c : commands()) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

int report(const std::string &prefix, const Failure &f, const char *command) {
  std::string line = prefix + ": " + f.message;
  if (f.code == kUsageError) {
    line += command ? std::string(" (try 'sorn ") + command + " --help')" : " (try 'sorn --help')";
  }
  std::fprintf(stderr, "%s\n", line.c_str());
  return f.code;
}

}  // namespace

int main_with(int argc, char **argv) {
  if (argc < 2) return report("sorn", Failure{kUsageError, "missing command"}, nullptr);
  std::string first = argv[1];
  if (first == "--help" || first == "-h") {
    print_usage(stdout);
    return kOk;
  }
  if (first == "--version") {
    std::printf("sorn %s\n", SORN_TOOL_VERSION);
    return kOk;
  }
  if (first == "help") {
    if (argc == 2) {
      print_usage(stdout);
      return kOk;
    }
    const Command *c = find_command(argv[2]);
    if (!c)
      return report("sorn", Failure{kUsageError, std::string("unknown command '") + argv[2] + "'"},
                    nullptr);
    return print_help(c->help);
  }
  const Command *command = find_command(first);
  if (!command) {
    std::string what = first.rfind("-", 0) == 0 ? "unknown option '" : "unknown command '";
    return report("sorn", Failure{kUsageError, what + first + "'"}, nullptr);
  }
  std::vector<std::string> rest(argv + 2, argv + argc);
  std::string prefix = std::string("sorn ") + command->name;
  try {
    int code = command->run(rest);
    // Output that never arrived (a full disk, a closed pipe) is a failure.
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
      input_error(std::string("cannot write to standard output: ") + std::strerror(errno));
    }
    return code;
  } catch (const Failure &f) {
    return report(prefix, f, command->name);
  } catch (const std::bad_alloc &) {
    return report(prefix, Failure{kInputError, "out of memory"}, command->name);
  } catch (const std::exception &e) {
    return report(prefix, Failure{kInputError, e.what()}, command->name);
  }
}

}  // namespace sorn::tool

int main(int argc, char **argv) { return sorn::tool::main_with(argc, argv); }
