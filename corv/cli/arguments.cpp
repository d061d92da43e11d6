#include "corv/cli/arguments.h"

#include <algorithm>
#include <cctype>

namespace corv::cli {

namespace {

bool contains(const std::vector<std::string>& list, const std::string& word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

// "-x" or "--xyz": a dash, or two, and a letter. Anything else that starts with a
// dash is an argument: "-", a negative number, a formula such as "-(I1[3]+1)".
bool looks_like_option(const std::string& word) {
  const std::size_t dashes = word.rfind("--", 0) == 0 ? 2 : word.rfind('-', 0) == 0 ? 1 : 0;
  return dashes > 0 && word.size() > dashes &&
         std::isalpha(static_cast<unsigned char>(word[dashes]));
}

}  // namespace

arguments::arguments(const std::vector<std::string>& words, const std::vector<std::string>& flags,
                     const std::vector<std::string>& valued) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::string word = words[i];
    if (word == "--") {
      positionals_.insert(positionals_.end(), words.begin() + i + 1, words.end());
      return;
    }
    std::optional<std::string> attached;
    if (word.rfind("--", 0) == 0 && word.find('=') != std::string::npos) {
      attached = word.substr(word.find('=') + 1);
      word = word.substr(0, word.find('='));
    }
    if (contains(flags, word)) {
      if (attached) {
        throw usage_error("option " + word + " takes no value");
      }
      options_.emplace(word, "");
    } else if (contains(valued, word)) {
      if (attached) {
        options_.emplace(word, *attached);
      } else if (i + 1 < words.size()) {
        options_.emplace(word, words[++i]);
      } else {
        throw usage_error("option " + word + " needs a value");
      }
    } else if (looks_like_option(word)) {
      throw usage_error("unknown option " + word);
    } else {
      positionals_.push_back(words[i]);
    }
  }
}

bool arguments::flag(const std::string& name) const {
  return options_.count(name) != 0;
}

std::optional<std::string> arguments::value(const std::string& name) const {
  const auto found = options_.equal_range(name);
  if (found.first == found.second) {
    return std::nullopt;
  }
  return std::prev(found.second)->second;
}

std::vector<std::string> arguments::values(const std::string& name) const {
  std::vector<std::string> result;
  const auto found = options_.equal_range(name);
  for (auto it = found.first; it != found.second; ++it) {
    result.push_back(it->second);
  }
  return result;
}

std::optional<int> arguments::integer(const std::string& name) const {
  const auto text = value(name);
  if (!text) {
    return std::nullopt;
  }
  try {
    std::size_t used = 0;
    const int number = std::stoi(*text, &used);
    if (used == text->size()) {
      return number;
    }
  } catch (const std::exception&) {
  }
  throw usage_error("option " + name + " needs an integer, not '" + *text + "'");
}

}  // namespace corv::cli
