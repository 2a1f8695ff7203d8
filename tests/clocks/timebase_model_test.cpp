// Random sequences of everything that can be done to chains of timebases, beside a model that knows nothing
// but integers: clocks, timebases, views and run-loop timers. After each step every time, rate and date is
// compared, and what was posted, in its order.
//
// All times are whole nanoseconds, and rates are halves, so nothing is ever rounded: a round ends when a time
// would fall between two nanoseconds. Steps of the clocks are large powers of two, which keeps that far off.
#include "tests/clocks/timebase_support.hpp"

namespace {

using namespace test;

constexpr int64_t kStep = int64_t{1} << 28;
constexpr double kFarFuture = 8'073'216'000.0;
constexpr int kClocks = 2, kTimebases = 5, kViews = 2, kNodes = kTimebases + kViews;
constexpr int kTimers = 4;
constexpr int kSteps = 60;

enum Why { kJumped, kSameDirection, kSet };

struct Timer {
  br::Ref<BRRunLoopTimer> timer;
  int node;
  bool isAdded = false, hasFireTime = false, isImmediate = false;
  int64_t fire = 0;
  uint32_t flags = 0;
  // What the date must be: as it is, or far away, or the moment of the step and this much more.
  enum { kAsItIs, kFar, kInNs } expected = kAsItIs;
  double delaySeconds = 0;
  BRAbsoluteTime dateBefore = 0;
};

struct Node {
  Timebase timebase;
  bool isView = false;
  int master = 0;  // a node; -1 and down are clocks; of a view the target
  int64_t from = 0, to = 0;
  int rate2 = 0;  // twice the rate
  int sign = 0;
  std::vector<int> followers;  // in the order in which they began to listen
};

class Model {
 public:
  explicit Model(uint32_t seed) : random_(seed) {
    for (int i = 0; i < kNodes; ++i) make(i);
    for (int i = 0; i < kTimers; ++i) {
      timers_[i].node = draw(kNodes);
      timers_[i].timer = br::Ref<BRRunLoopTimer>::adopt(BRRunLoopTimerCreate(
          nullptr, 0.0, 86'400.0, [](BRRunLoopTimerRef, void*) {}, nullptr));
    }
  }

  // Returns the number of steps that were compared.
  int run() {
    for (int i = 0; i < kSteps && isExact_; ++i) {
      const BRAbsoluteTime before = BRAbsoluteTimeGetCurrent();
      for (Timer& timer : timers_) {
        timer.expected = Timer::kAsItIs;
        timer.dateBefore = BRRunLoopTimerGetNextFireDate(timer.timer.get());
      }
      const std::string what = step();
      if (!isExact_ || !compare(before)) {
        EXPECT_FALSE(testing::Test::HasFailure()) << "step " << i << ": " << what;
        return i;
      }
    }
    return kSteps;
  }

 private:
  int draw(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }
  int64_t drawTime() { return (draw(64) - 32) * kStep; }
  int drawRate2() { return std::array{-4, -2, -1, 0, 0, 1, 2, 2, 4}[static_cast<size_t>(draw(9))]; }
  PVTimebaseRef ref(int node) { return nodes_[node].timebase.get(); }
  PVClockRef clock(int master) { return clocks_[-1 - master]; }

  void make(int index) {
    Node& node = nodes_[index];
    node.isView = index >= kTimebases;
    node.master = index == 0 ? -1 : node.isView ? draw(index) : draw(index + 2) - 2;
    node.timebase = node.isView       ? viewOf(ref(node.master))
                    : node.master < 0 ? onClock(clock(node.master))
                                      : onTimebase(ref(node.master));
    if (node.master >= 0) nodes_[node.master].followers.push_back(index);
    recorder_.listenTo(ref(index));
  }

  // ---- The model of reading

  const Node& shown(int index) const {
    while (nodes_[index].isView) index = nodes_[index].master;
    return nodes_[index];
  }
  int64_t half(int64_t doubled) {
    if (doubled % 2 != 0 || std::abs(doubled) >= int64_t{1} << 51) isExact_ = false;
    return doubled / 2;
  }
  int64_t at(const Node& node, int64_t masterTime) {
    return node.rate2 == 0 ? node.to : node.to + half((masterTime - node.from) * node.rate2);
  }
  int64_t masterNow(const Node& node) {
    return node.master < 0 ? clocks_[-1 - node.master].nowNs() : now(node.master);
  }
  int64_t now(int index) {
    const Node& node = shown(index);
    return at(node, masterNow(node));
  }
  double rate(int index) const { return shown(index).rate2 / 2.0; }
  double effectiveRate(int index) const {
    double product = 1.0;
    for (; index >= 0; index = shown(index).master) product *= rate(index);
    return product;
  }
  bool leadsTo(int from, int to) const {
    for (; from >= 0; from = nodes_[from].master)
      if (from == to) return true;
    return false;
  }
  int ultimate(int index) const {
    while (index >= 0) index = nodes_[index].master;
    return index;
  }
  // From the timebase's time to that of its clock.
  int64_t toClock(int index, int64_t time) {
    for (; index >= 0; index = shown(index).master) {
      const Node& node = shown(index);
      const int64_t doubled = (time - node.to) * 2;
      if (node.rate2 == 0 || doubled % node.rate2 != 0) isExact_ = false;
      time = node.rate2 == 0 ? 0 : node.from + doubled / node.rate2;
    }
    return time;
  }

  // ---- The model of notifications and timers

  void expect(int index, char what, bool hasTime, int64_t time) {
    expected_.push_back({ref(index), what, hasTime ? ns(time) : kPVTimeInvalid});
  }
  bool updateSign(int index) {
    Node& node = nodes_[index];
    const int old = node.sign;
    const double rate = effectiveRate(index);
    if (rate != 0) node.sign = rate > 0 ? 1 : -1;
    return old == node.sign;
  }
  void post(int index, char what, bool hasTime, int64_t time) {
    expect(index, what, hasTime, time);
    for (const int follower : std::vector(nodes_[index].followers)) hear(follower, what, hasTime, time);
  }
  void hear(int index, char what, bool hasTime, int64_t time) {
    Node& node = nodes_[index];
    const bool isMotion = what == 'R' || what == 'J';
    if (!node.isView && isMotion && node.rate2 == 0) return;
    const int64_t own = node.isView ? time : hasTime ? at(node, time) : 0;
    if (isMotion) {
      const bool same = (what == 'R' || node.isView) && updateSign(index);
      reschedule(index, what == 'R' && same ? kSameDirection : kJumped, own);
    } else if (what == 'D') {
      reschedule(index, kSameDirection, own);
    }
    post(index, what, hasTime && (node.isView || what != 'W'), own);
  }
  void reschedule(int index, Why why, int64_t now) {
    for (Timer& timer : timers_)
      if (timer.isAdded && timer.node == index && !timer.isImmediate) schedule(timer, why, now);
  }
  void schedule(Timer& timer, Why why, int64_t now) {
    const double rate = effectiveRate(timer.node);
    if (!timer.hasFireTime || rate == 0) {
      timer.expected = Timer::kFar;
      return;
    }
    const bool passed = rate > 0 ? timer.fire < now : timer.fire > now;
    if (passed && !timer.flags && why == kSameDirection) return;
    if (passed && !timer.flags && why == kJumped) {
      timer.expected = Timer::kFar;
      return;
    }
    const auto& clock = clocks_[-1 - ultimate(timer.node)];
    timer.expected = Timer::kInNs;
    timer.delaySeconds = static_cast<double>(toClock(timer.node, timer.fire) - clock.nowNs()) / 1e9;
  }

  // ---- Steps: each is done to the timebases and to the model

  std::string step() {
    const int index = draw(kTimebases);
    switch (draw(10)) {
      case 0:
      case 1:
        return setRate(index);
      case 2:
        return setTime(index);
      case 3:
        return setAnchor(index);
      case 4:
        return setRateAndAnchor(index);
      case 5:
        return setMaster(index);
      case 6:
        return setTarget(kTimebases + draw(kViews));
      case 7:
        return timerStep(timers_[draw(kTimers)]);
      case 8:
        return setFireTime(timers_[draw(kTimers)]);
      default:
        clocks_[draw(kClocks)].advance(draw(16) * kStep);
        return "advance";
    }
  }

  std::string setTime(int index) {
    Node& node = nodes_[index];
    const int64_t time = draw(4) ? drawTime() : now(index);
    EXPECT_EQ(PVTimebaseSetTime(ref(index), ns(time)), 0);
    if (node.rate2 == 0 && time == node.to) return "set the same time";
    node.from = masterNow(node);
    node.to = time;
    reschedule(index, kJumped, time);
    post(index, 'J', true, time);
    return "set time";
  }
  std::string setAnchor(int index) {
    Node& node = nodes_[index];
    const int64_t time = drawTime(), masterTime = drawTime();
    EXPECT_EQ(PVTimebaseSetAnchorTime(ref(index), ns(time), ns(masterTime)), 0);
    if (node.rate2 == 0 && time == node.to) return "set the same anchor";
    node.from = masterTime;
    node.to = time;
    reschedule(index, kJumped, now(index));
    post(index, 'J', true, now(index));
    return "set anchor";
  }
  std::string setRate(int index) {
    Node& node = nodes_[index];
    const int rate2 = drawRate2();
    EXPECT_EQ(PVTimebaseSetRate(ref(index), rate2 / 2.0), 0);
    if (rate2 == node.rate2) return "set the same rate";
    changeRate(index, 0, rate2, false, now(index), masterNow(node));
    return "set rate";
  }
  std::string setRateAndAnchor(int index) {
    Node& node = nodes_[index];
    const int rate2 = drawRate2();
    const uint32_t flags = draw(2) ? kPVTimebaseAnchorFlag_TimeDoesNotJump : 0;
    const bool same = draw(4) == 0;
    const int64_t time = same ? node.to : drawTime(), masterTime = same ? node.from : drawTime();
    EXPECT_EQ(
        PVTimebaseSetRateAndAnchorTimeWithFlags(ref(index), flags, rate2 / 2.0, ns(time), ns(masterTime)), 0);
    if (rate2 == 0 && node.rate2 == 0 && time == node.to && masterTime == node.from)
      return "set all the same";
    changeRate(index, flags, rate2, true, time, masterTime);
    return "set rate and anchor";
  }
  void changeRate(int index, uint32_t flags, int rate2, bool isAnchored, int64_t to, int64_t from) {
    Node& node = nodes_[index];
    const double old = effectiveRate(index);
    node.rate2 = rate2;
    node.to = to;
    node.from = from;
    const int64_t time = now(index);
    const bool isChanged = effectiveRate(index) != old;
    if (!flags || isChanged) {
      const bool same = updateSign(index) && !(isAnchored && !flags);
      reschedule(index, same ? kSameDirection : kJumped, time);
    }
    if (isChanged) post(index, 'R', true, time);
    if (isAnchored && !flags) post(index, 'J', true, time);
  }

  void follow(int index, int newMaster) {
    Node& node = nodes_[index];
    if (node.master >= 0) std::erase(nodes_[node.master].followers, index);
    if (newMaster >= 0) nodes_[newMaster].followers.push_back(index);
    node.master = newMaster;
  }
  std::string setMaster(int index) {
    const int master = draw(kNodes + kClocks) - kClocks;
    const PVStatus status = master < 0 ? PVTimebaseSetMasterClock(ref(index), clock(master))
                                       : PVTimebaseSetMasterTimebase(ref(index), ref(master));
    if (leadsTo(master, index)) {
      EXPECT_EQ(status, -12749);
      return "close a circle";
    }
    EXPECT_EQ(status, 0);
    Node& node = nodes_[index];
    const int64_t time = now(index);
    const double old = effectiveRate(index);
    post(index, 'W', true, time);
    follow(index, master);
    node.to = time;
    node.from = masterNow(node);
    const bool isChanged = effectiveRate(index) != old;
    reschedule(index, !isChanged || updateSign(index) ? kSameDirection : kJumped, time);
    post(index, 'D', true, time);
    if (isChanged) post(index, 'R', true, time);
    return "set master";
  }
  std::string setTarget(int index) {
    const int target = draw(kNodes);
    const PVStatus status = KivReadOnlyTimebaseSetTargetTimebase(ref(index), ref(target));
    if (leadsTo(target, index)) {
      EXPECT_EQ(status, -12749);
      return "close a circle of targets";
    }
    EXPECT_EQ(status, 0);
    post(index, 'W', true, now(index));
    if (target == nodes_[index].master) {
      post(index, 'D', true, now(index));
      return "set the same target";
    }
    const int old = nodes_[index].master;
    const bool isChanged = effectiveRate(old) != effectiveRate(target);
    const bool jumps =
        ultimate(old) != ultimate(target) || isChanged || now(old) != now(target) || !isSameLine(old, target);
    follow(index, target);
    if (isChanged || jumps)
      reschedule(index, updateSign(index) && !jumps ? kSameDirection : kJumped, now(index));
    post(index, 'D', true, now(index));
    if (isChanged) post(index, 'R', true, now(index));
    if (jumps) post(index, 'J', true, now(index));
    return "set target";
  }
  // Of equal rates over the whole chain: a timebase whose chain stands somewhere is judged by the anchors of
  // its own transform, which then is that of its uppermost running part.
  bool isSameLine(int a, int b) {
    const auto [fromA, toA] = anchors(a);
    const auto [fromB, toB] = anchors(b);
    return toA - toB == static_cast<int64_t>(static_cast<double>(fromA - fromB) * effectiveRate(a));
  }
  std::pair<int64_t, int64_t> anchors(int index) {
    // Down the chain: the anchor of the top, mapped by everything below.
    std::vector<const Node*> chain;
    for (; index >= 0; index = shown(index).master) chain.push_back(&shown(index));
    int64_t to = chain.back()->to;
    for (size_t i = chain.size() - 1; i-- > 0;)
      to = chain[i]->to + half((to - chain[i]->from) * chain[i]->rate2);
    return {chain.back()->from, to};
  }

  // ---- Timers

  std::string timerStep(Timer& timer) {
    PVTimebaseRef timebase = ref(timer.node);
    const PVStatus unknown = timer.isAdded ? 0 : -12749;
    if (draw(3) == 0) {
      EXPECT_EQ(PVTimebaseSetTimerToFireImmediately(timebase, timer.timer.get()), unknown);
      timer.isImmediate = timer.isAdded;
      if (timer.isAdded) timer.expected = Timer::kInNs, timer.delaySeconds = 0;
      return "fire immediately";
    }
    if (timer.isAdded && draw(3) == 0) {
      EXPECT_EQ(PVTimebaseRemoveTimer(timebase, timer.timer.get()), 0);
      timer.expected = Timer::kFar;
      timer.isAdded = timer.isImmediate = timer.hasFireTime = false;
      timer.node = draw(kNodes);
      return "remove timer";
    }
    EXPECT_EQ(PVTimebaseAddTimer(timebase, timer.timer.get(), BRRunLoopGetCurrent()), 0);
    if (!timer.isAdded) timer.expected = Timer::kFar;
    timer.isAdded = true;
    return "add timer";
  }
  std::string setFireTime(Timer& timer) {
    timer.flags = draw(3) == 0;
    timer.fire = now(timer.node) + drawTime();
    const bool isNumber = draw(6) != 0;
    const PVStatus status = PVTimebaseSetTimerNextFireTime(
        ref(timer.node), timer.timer.get(), isNumber ? ns(timer.fire) : kPVTimeIndefinite, timer.flags);
    EXPECT_EQ(status, timer.isAdded ? 0 : -12749);
    if (!timer.isAdded) return "set fire time of a stranger";
    timer.hasFireTime = isNumber;
    timer.isImmediate = false;
    schedule(timer, kSet, now(timer.node));
    return "set fire time";
  }

  // ---- Comparison

  bool compare(BRAbsoluteTime before) {
    const BRAbsoluteTime after = BRAbsoluteTimeGetCurrent();
    for (int i = 0; i < kNodes; ++i) {
      const int64_t time = now(i);
      if (!isExact_) return false;
      EXPECT_EQ(PVTimebaseGetTimeWithTimeScale(ref(i), 1'000'000'000, 1).value, time) << i;
      EXPECT_EQ(PVTimebaseGetRate(ref(i)), rate(i)) << i;
      EXPECT_EQ(PVTimebaseGetEffectiveRate(ref(i)), effectiveRate(i)) << i;
      EXPECT_EQ(PVTimebaseGetUltimateMasterClock(ref(i)), clock(ultimate(i))) << i;
    }
    EXPECT_EQ(recorder_.take(), expected_);
    expected_.clear();
    for (const Timer& timer : timers_) {
      const BRAbsoluteTime date = BRRunLoopTimerGetNextFireDate(timer.timer.get());
      constexpr double kResolution = 1e-6;
      if (timer.expected == Timer::kInNs) {
        EXPECT_GE(date, before + timer.delaySeconds - kResolution);
        EXPECT_LE(date, after + timer.delaySeconds + kResolution);
      } else {
        EXPECT_EQ(date, timer.expected == Timer::kFar ? kFarFuture : timer.dateBefore);
      }
    }
    return !testing::Test::HasFailure();
  }

  std::minstd_rand random_;
  FakeClock clocks_[kClocks];
  Recorder recorder_;
  Node nodes_[kNodes];
  Timer timers_[kTimers];
  std::vector<Event> expected_;
  bool isExact_ = true;
};

TEST(TimebaseModel, RandomStepsDoWhatTheModelDoes) {
  constexpr int kRounds = 1500;
  int64_t compared = 0;
  for (uint32_t seed = 1; seed <= kRounds && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    compared += Model(seed).run();
  }
  EXPECT_GT(compared, kRounds * kSteps / 2);
  RecordProperty("compared", static_cast<int>(compared));
}

}  // namespace
