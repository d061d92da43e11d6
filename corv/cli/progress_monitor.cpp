#include "corv/cli/progress_monitor.h"

#include <algorithm>
#include <chrono>

#include "corv/io/logger.h"

namespace corv::cli {

namespace {

constexpr auto poll_interval = std::chrono::milliseconds(100);
constexpr int bar_width = 20;

}  // namespace

progress_monitor::progress_monitor(std::ostream& out, bool terminal,
                                   std::function<bool()> interrupted)
    : out_(out), terminal_(terminal), interrupted_(std::move(interrupted)) {
  thread_ = std::thread([this] {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
      wake_.wait_for(lock, poll_interval);
      if (!stopping_) {
        poll();
      }
    }
  });
}

progress_monitor::~progress_monitor() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    erase();
  }
  wake_.notify_all();
  thread_.join();
}

std::string progress_monitor::stage_name(int stage) {
  switch (stage) {
    case stage_illuminant:
      return "illuminant recovery";
    case stage_reflectance:
      return "reflectance recovery";
    case stage_materials:
      return "material discovery";
    case stage_analysis:
      return "analysis";
    case stage_classification:
      return "classification";
    case stage_filter:
      return "filter";
    case stage_conversion:
      return "conversion";
    case stage_preparation:
      return "preparation";
    case stage_band_maths:
      return "band maths";
    default:
      return "stage " + std::to_string(stage);
  }
}

void progress_monitor::begin(int stage) {
  logger& log = logger::instance();
  log.set_stage(stage);
  log.set_progress(0);
  const std::lock_guard<std::mutex> lock(mutex_);
  active_ = true;
  shown_stage_ = -1;
  show(stage, 0);
}

void progress_monitor::end() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (active_) {
    show(logger::instance().stage(), 100);
    active_ = false;
  }
}

void progress_monitor::poll() {
  logger& log = logger::instance();
  if (!forwarded_ && interrupted_ && interrupted_()) {
    log.request_abort();
    forwarded_ = true;
  }
  if (active_) {
    show(log.stage(), log.progress());
  }
}

void progress_monitor::show(int stage, int percent) {
  percent = std::clamp(percent, 0, 100);
  const bool new_stage = stage != shown_stage_;
  if (terminal_) {
    if (!new_stage && percent == shown_percent_) {
      return;
    }
    const int filled = percent * bar_width / 100;
    std::string line = stage_name(stage) + " [" + std::string(filled, '#') +
                       std::string(bar_width - filled, '-') + "] ";
    const std::string number = std::to_string(percent) + "%";
    line += std::string(4 - std::min<std::size_t>(4, number.size()), ' ') + number;
    // Blanks over whatever is left of a longer earlier line.
    const std::size_t length = line.size();
    line.resize(std::max(length, drawn_), ' ');
    out_ << '\r' << line << std::flush;
    drawn_ = length;
  } else {
    // A line per tenth keeps a log readable however finely a stage reports.
    if (!new_stage && percent / 10 <= shown_percent_ / 10) {
      return;
    }
    out_ << stage_name(stage) << ": " << percent << "%\n" << std::flush;
  }
  shown_stage_ = stage;
  shown_percent_ = percent;
}

void progress_monitor::erase() {
  if (terminal_ && drawn_ > 0) {
    out_ << '\r' << std::string(drawn_, ' ') << '\r' << std::flush;
    drawn_ = 0;
  }
}

}  // namespace corv::cli
