#include "corv/io/logger.h"
#include "corv/io/quiet_log.h"

#include <ctime>
#include <iostream>
#include <stdexcept>

namespace corv {

namespace {

thread_local int quiet_depth = 0;

}  // namespace

quiet_log::quiet_log() {
  ++quiet_depth;
}

quiet_log::~quiet_log() {
  --quiet_depth;
}

bool quiet_log::active() {
  return quiet_depth > 0;
}

logger& logger::instance() {
  static logger the_logger;
  return the_logger;
}

logger& logger::operator<<(const std::string& text) {
  if (silenced_ || quiet_depth > 0) {
    return *this;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  if (text == "EOL") {
    complete_line();
  } else {
    line_ << text;
  }
  return *this;
}

logger& logger::operator<<(const char* text) {
  return *this << std::string(text ? text : "");
}

void logger::complete_line() {
  std::string line = line_.str();
  if (echo_) {
    std::cout << line << std::endl;
  }
  entries_.emplace_back(log_time_stamp(), std::move(line));
  line_.str(std::string());
  line_.clear();
}

std::vector<logger::entry> logger::entries() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_;
}

std::vector<logger::entry> logger::take_entries() {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<entry> taken;
  taken.swap(entries_);
  return taken;
}

void logger::clear_entries() {
  std::lock_guard<std::mutex> lock(mutex_);
  entries_.clear();
}

void logger::check_abort() {
  if (abort_.exchange(false)) {
    throw std::runtime_error("Processing was aborted!");
  }
}

void logger::clear_progress() {
  stage_ = 0;
  progress_ = 0;
  abort_ = false;
}

std::string log_time_stamp() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) {
    throw std::runtime_error("could not convert calendar time to local time");
  }
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%d_%H%M%S", &local);
  return text;
}

void log_and_throw(const std::string& log_line, const std::string& thrown_text) {
  logger::instance() << log_line << "EOL";
  throw std::runtime_error(thrown_text);
}

void log_and_throw(const std::string& text) {
  log_and_throw(text, text);
}

}  // namespace corv
