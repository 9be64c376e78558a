// Option parsing shared by the subcommands: "--name value", "--name=value",
// "-o value", positionals in between, "--" ends the options.
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "cli.h"

namespace sorn::tool {

namespace {
const OptionSpec *find_spec(const std::vector<OptionSpec> &options, const std::string &word) {
  for (const OptionSpec &s : options) {
    if (word == s.name || (s.alias && word == s.alias)) return &s;
  }
  return nullptr;
}
}  // namespace

Args::Args(const std::string &command, const std::vector<std::string> &argv,
           const std::vector<OptionSpec> &options, size_t max_positionals)
    : command_(command) {
  for (const std::string &a : argv) {
    if (a == "--") break;
    if (a == "--help" || a == "-h") {
      help_ = true;
      return;
    }
  }
  bool options_done = false;
  for (size_t i = 0; i < argv.size(); ++i) {
    const std::string &a = argv[i];
    if (options_done || a.size() < 2 || a[0] != '-') {
      if (positionals_.size() == max_positionals) {
        usage_error("unexpected argument '" + a + "'");
      }
      positionals_.push_back(a);
      continue;
    }
    if (a == "--") {
      options_done = true;
      continue;
    }
    std::string word = a, inline_value;
    bool has_inline = false;
    size_t eq = a.find('=');
    if (a.rfind("--", 0) == 0 && eq != std::string::npos) {
      word = a.substr(0, eq);
      inline_value = a.substr(eq + 1);
      has_inline = true;
    }
    const OptionSpec *option = find_spec(options, word);
    if (!option) usage_error("unknown option '" + word + "'");
    std::string value;
    if (option->takes_value) {
      if (has_inline) {
        value = inline_value;
      } else {
        if (i + 1 >= argv.size()) usage_error("option '" + word + "' needs a value");
        value = argv[++i];
      }
    } else if (has_inline) {
      usage_error("option '" + word + "' takes no value");
    }
    for (auto &v : values_) {
      if (v.first == option->name) usage_error("option '" + word + "' given twice");
    }
    values_.emplace_back(option->name, value);
  }
}

bool Args::has(const char *name) const { return value(name) != nullptr; }

const std::string *Args::value(const char *name) const {
  for (const auto &v : values_) {
    if (v.first == name) return &v.second;
  }
  return nullptr;
}

int64_t Args::integer(const char *name, int64_t fallback, int64_t lo, int64_t hi) const {
  const std::string *v = value(name);
  if (!v) return fallback;
  const std::string range = "an integer from " + std::to_string(lo) + " to " + std::to_string(hi);
  errno = 0;
  char *end = nullptr;
  long long x = std::strtoll(v->c_str(), &end, 10);
  if (v->empty() || *end != '\0' || errno == ERANGE) {
    usage_error("invalid value '" + *v + "' for " + name + ": expected " + range);
  }
  if (x < lo || x > hi)
    usage_error("value " + *v + " for " + name + " out of range: expected " + range);
  return x;
}

double Args::real(const char *name, double fallback, double lo, double hi) const {
  const std::string *v = value(name);
  if (!v) return fallback;
  auto show = [](double d) {
    char b[32];
    std::snprintf(b, sizeof b, "%g", d);
    return std::string(b);
  };
  const std::string range = "a number from " + show(lo) + " to " + show(hi);
  errno = 0;
  char *end = nullptr;
  double x = std::strtod(v->c_str(), &end);
  if (v->empty() || *end != '\0' || errno == ERANGE || !std::isfinite(x)) {
    usage_error("invalid value '" + *v + "' for " + name + ": expected " + range);
  }
  if (x < lo || x > hi)
    usage_error("value " + *v + " for " + name + " out of range: expected " + range);
  return x;
}

std::string Args::text(const char *name, const std::string &fallback) const {
  const std::string *v = value(name);
  if (!v) return fallback;
  if (v->empty()) usage_error(std::string("empty value for ") + name);
  return *v;
}

std::string Args::choice(const char *name, const std::string &fallback,
                         const std::vector<std::string> &words) const {
  const std::string *v = value(name);
  if (!v) return fallback;
  std::string list;
  for (const std::string &w : words) {
    if (*v == w) return w;
    list += list.empty() ? w : "|" + w;
  }
  usage_error("invalid value '" + *v + "' for " + name + ": expected " + list);
}

// Whole numbers separated by `sep`, each lo to hi; a bad list is a usage
// error naming the option.
std::vector<int64_t> whole_numbers(const std::string &option, const std::string &text, char sep,
                                   int64_t lo, int64_t hi) {
  std::vector<int64_t> out;
  size_t at = 0;
  while (true) {
    const size_t end = text.find(sep, at);
    const std::string part =
        text.substr(at, end == std::string::npos ? std::string::npos : end - at);
    char *stop = nullptr;
    const long long v = std::strtoll(part.c_str(), &stop, 10);
    if (part.empty() || *stop != '\0' || v < lo || v > hi)
      usage_error(option + ": '" + text + "' is not a list of whole numbers from " +
                  std::to_string(lo) + " to " + std::to_string(hi));
    out.push_back(v);
    if (end == std::string::npos) break;
    at = end + 1;
  }
  return out;
}

}  // namespace sorn::tool
