#include "play.hpp"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>

#include "atom_type.hpp"
#include "file_kind.hpp"
#include "movie_file.hpp"
#include "output.hpp"
#include "report.hpp"
#include "terminal.hpp"
#include "track_player.hpp"

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kSeekSeconds = 5;
constexpr auto kTerminalInterval = std::chrono::milliseconds(200),
               kLineInterval = std::chrono::milliseconds(1000);

volatile std::sig_atomic_t stopped = 0;

// Ends playing as the key would, so that everything is put back.
void stopOnSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { stopped = 1; };
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

struct PlayedTrack {
  const TrackFacts& facts;
  std::unique_ptr<TrackPlayer> player;
};

std::string handlerText(const TrackFacts& facts) { return facts.handler ? typeText(*facts.handler) : "?"; }

class Player {
 public:
  Player(const MovieFile& movie, const PlayOptions& options, Terminal& terminal)
      : terminal_(terminal), json_(options.json), rate_(options.rate) {
    PVTimebaseCreateWithMasterClock(nullptr, PVClockGetHostTimeClock(), timebase_.out());
    std::vector<std::pair<size_t, std::unique_ptr<OutputIndex>>> indexes;
    for (size_t i = 0; i < movie.facts().tracks().size(); ++i) {
      if (!movie.isTimed(i)) continue;
      indexes.emplace_back(i, std::make_unique<OutputIndex>(movie.samplesOf(i)));
      end_ = PVTimeMaximum(end_, indexes.back().second->end());
    }
    setRange(options);
    for (auto& [number, index] : indexes)
      tracks_.push_back(
          {movie.facts().tracks()[number], std::make_unique<TrackPlayer>(std::move(index), timebase_.get(),
                                                                         BRRunLoopGetCurrent(), from_, to_)});
  }

  void run() {
    seek(rate_ < 0 ? to_ : from_);
    PVTimebaseSetRate(timebase_.get(), rate_);
    BRRunLoopRef loop = BRRunLoopGetCurrent();
    pollfd sources[] = {{BRRunLoopGetPollDescriptor(loop), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    while (!stopped && !quit_ && !isAtEnd()) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(nextShow_ - Clock::now()).count();
      const bool keys = terminal_.isThere() && !terminal_.inputEnded();
      if (poll(sources, keys ? 2 : 1, static_cast<int>(std::max<int64_t>(0, left))) < 0 && errno != EINTR)
        break;
      BRRunLoopDispatchPending(loop, kBRRunLoopDefaultMode);
      if (keys && sources[1].revents)
        for (Key key : terminal_.readKeys()) handle(key);
      if (Clock::now() >= nextShow_) show();
    }
    if (terminal_.isThere() && !json_) show();
  }

  void report(Output& output, const std::string& fileName) const {
    if (json_) return reportJson(output, fileName);
    for (const PlayedTrack& track : tracks_) {
      const Lateness late = track.player->lateness();
      output.print(
          "Track {} ({}): {} delivered, {} dropped, {} out of order; late by {:.3f} ms (median), {:.3f} ms "
          "(99 %), {:.3f} ms (most)\n",
          track.facts.id.value_or(0), handlerText(track.facts), track.player->delivered(),
          track.player->dropped(), track.player->outOfOrder(), late.p50 * 1e3, late.p99 * 1e3,
          late.maximum * 1e3);
    }
  }

 private:
  void setRange(const PlayOptions& options) {
    // The times of samples are below the end.
    from_ = PVTimeMake(INT64_MIN / 4, 1);
    to_ = PVTimeAdd(end_, PVTimeMake(1, 1000000));
    const PVTime start = options.start.value_or(options.rate < 0 ? to_ : kPVTimeZero);
    if (options.rate < 0) {
      to_ = start;
      from_ = options.duration ? PVTimeSubtract(start, *options.duration) : kPVTimeZero;
    } else {
      from_ = start;
      if (options.duration) to_ = PVTimeAdd(start, *options.duration);
    }
  }

  bool isAtEnd() const {
    return std::ranges::all_of(tracks_, [](const PlayedTrack& track) { return track.player->isAtEnd(); });
  }

  void seek(PVTime time) {
    PVTimebaseSetTime(timebase_.get(), PVTimeMinimum(PVTimeMaximum(time, from_), to_));
    for (PlayedTrack& track : tracks_) track.player->restart(rate_ < 0);
  }

  void setRate(double rate) {
    const bool turns = (rate < 0) != (rate_ < 0);
    rate_ = rate;
    if (!paused_) PVTimebaseSetRate(timebase_.get(), rate_);
    if (turns)
      for (PlayedTrack& track : tracks_) track.player->restart(rate_ < 0);
  }

  void handle(Key key) {
    const auto jump = [&](double seconds) {
      seek(PVTimeAdd(PVTimebaseGetTime(timebase_.get()), PVTimeMakeWithSeconds(seconds, 1000)));
    };
    switch (key) {
      case Key::Space:
        paused_ = !paused_;
        PVTimebaseSetRate(timebase_.get(), paused_ ? 0 : rate_);
        break;
      case Key::Faster:
        setRate(rate_ * 2);
        break;
      case Key::Slower:
        setRate(rate_ / 2);
        break;
      case Key::Left:
        jump(-kSeekSeconds);
        break;
      case Key::Right:
        jump(kSeekSeconds);
        break;
      case Key::Reverse:
        setRate(-rate_);
        break;
      case Key::Quit:
        quit_ = true;
        break;
    }
  }

  void show() {
    nextShow_ = Clock::now() + (terminal_.isThere() ? kTerminalInterval : kLineInterval);
    if (json_) return;
    PVTime now = kPVTimeInvalid;
    double rate = 0;
    PVTimebaseGetTimeAndRate(timebase_.get(), &now, &rate);
    std::vector<std::string> lines;
    for (const PlayedTrack& track : tracks_)
      lines.push_back(fmt::format("track {} ({})  {:9.3f} s  rate {:g}  queued {:.2f} s  late {:.3f} ms",
                                  track.facts.id.value_or(0), handlerText(track.facts), PVTimeGetSeconds(now),
                                  rate, PVTimeGetSeconds(track.player->queued()),
                                  track.player->lastLateness() * 1e3));
    if (terminal_.isThere()) return terminal_.show(lines);
    for (const std::string& line : lines) std::puts(line.c_str());
    std::fflush(stdout);
  }

  void reportJson(Output& output, const std::string& fileName) const {
    using nlohmann::json;
    json tracks = json::array();
    for (const PlayedTrack& track : tracks_) {
      const Lateness late = track.player->lateness();
      tracks.push_back({{"id", track.facts.id.value_or(0)},
                        {"handler", handlerText(track.facts)},
                        {"delivered", track.player->delivered()},
                        {"dropped", track.player->dropped()},
                        {"outOfOrder", track.player->outOfOrder()},
                        {"lateness", {{"p50", late.p50}, {"p99", late.p99}, {"max", late.maximum}}}});
    }
    const json told = {{"file", fileName},
                       {"rate", rate_},
                       {"duration", {{"value", end_.value}, {"timescale", end_.timescale}}},
                       {"tracks", tracks}};
    output.print("{}\n", told.dump(-1, ' ', false, json::error_handler_t::replace));
  }

  Terminal& terminal_;
  bool json_;
  double rate_;
  bool paused_ = false, quit_ = false;
  PVTime from_{}, to_{}, end_ = kPVTimeZero;
  br::Ref<PVTimebase> timebase_;
  std::vector<PlayedTrack> tracks_;
  Clock::time_point nextShow_ = Clock::now();
};

}  // namespace

ExitStatus play(const std::string& fileName, const PlayOptions& options) {
  InputFile file;
  if (const std::string reason = file.open(fileName); !reason.empty()) {
    complain(fileName, reason);
    return kFailed;
  }
  if (!fileKindOf(file.stream(), file.size(), fileName).movie) {
    complain(fileName, "Not a movie");
    return kFailed;
  }
  const MovieFile movie(file);
  Output output;
  {
    stopOnSignals();
    Terminal terminal;
    Player player(movie, options, terminal);
    player.run();
    player.report(output, fileName);
  }
  if (!output.flush() && output.error() != EPIPE) {
    complain("standard output", std::strerror(output.error()));
    return kFailed;
  }
  for (const Damage& damage : movie.damages()) complainOf(fileName, damage);
  return movie.damages().empty() ? kSound : kDamaged;
}
