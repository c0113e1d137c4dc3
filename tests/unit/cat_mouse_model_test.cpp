// The protocol of the cat-and-mouse lock, walked through: every order in which a few threads can
// take its steps (cat_mouse_lock.*, mouse.h, asymmetric_fence.*) on processors that keep stores
// back. Whoever changes a step there changes it here.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace {

enum : int { CATS_ABOUT, CATS, LIGHT, KERNEL_FENCES, RECORDS, FIRST_MOUSE };
// The steps of a mouse, then of a cat.
enum : int { WAIT, COME, ENTER_LIGHTLY, ENTER_LOCKED, LOOK, BACK_OFF, CHANGE, LEAVE };
enum : int { ANNOUNCE = LEAVE + 1, FENCE, DIM, AWAIT_STORES, LOCK, LOOK_AROUND, ENTER, INSIDE };
enum : int { GO = INSIDE + 1, DONE };

enum class KERNEL { HAS_FENCES, HAS_NONE, LOSES_THEM };
enum class WITHOUT { NOTHING, FENCE, WAIT_FOR_STORES, LOCKED_ENTRY, SECOND_LOOK, BACKING_OFF };
enum class FAULT { NONE, NOT_ALONE, STUCK };
struct CASE {
  KERNEL kernel;
  int mice, cats, rounds;
  WITHOUT without = WITHOUT::NOTHING;
};

constexpr std::size_t most_threads = 3;
struct THREAD {
  int step = DONE, rounds = 0, looks_at = CATS;
  std::vector<std::pair<int, int>> kept_back{};     // stores: variable and value, oldest first
  std::array<std::size_t, most_threads> awaits{};   // so many stores of the others
  auto operator<=>(const THREAD&) const = default;  // NOLINT(modernize-use-nullptr): none here
};
struct STATE {
  std::array<int, FIRST_MOUSE + most_threads> memory{};
  std::array<THREAD, most_threads> threads{};
  auto operator<=>(const STATE&) const = default;  // NOLINT(modernize-use-nullptr)
};

// Without the second look, it has looked before.
int first_of_mouse(const CASE& of) { return of.without == WITHOUT::SECOND_LOOK ? WAIT : COME; }

bool holds_lock(const THREAD& cat) { return cat.step == LOOK_AROUND || cat.step == ENTER; }

/// One thread of a state, which takes its next step where it can.
struct STEPPING {
  const CASE& of;
  STATE& state;
  std::size_t number;
  THREAD& self = state.threads[number];

  bool let_a_store_out() {
    if (self.kept_back.empty()) return false;
    state.memory[self.kept_back[0].first] = self.kept_back[0].second;
    self.kept_back.erase(self.kept_back.begin());
    for (THREAD& other : state.threads)
      if (other.awaits[number] > 0) --other.awaits[number];
    return true;
  }

  bool step() {
    const int at = self.step;
    const int word = FIRST_MOUSE + static_cast<int>(number);
    const int inside = without(WITHOUT::SECOND_LOOK) ? CHANGE : LOOK;
    const bool enters_lightly = load(LIGHT) == 1 || without(WITHOUT::LOCKED_ENTRY);
    const int left_at_door = load(word) - (without(WITHOUT::BACKING_OFF) ? 0 : 1);
    if (at == WAIT) return load(CATS_ABOUT) == 0 && go(COME);
    if (at == COME) return go(enters_lightly ? ENTER_LIGHTLY : ENTER_LOCKED);
    if (at == ENTER_LIGHTLY) return store(word, load(word) + 1) && go(inside);
    if (at == ENTER_LOCKED) return add_locked(word, 1) && go(inside);
    if (at == LOOK) return go(load(CATS_ABOUT) == 0 ? CHANGE : BACK_OFF);
    if (at == BACK_OFF) return store(word, left_at_door) && go(WAIT);
    if (at == CHANGE) return store(RECORDS, 1) && go(LEAVE);
    if (at == LEAVE) return store(word, load(word) - 1) && end_round(first_of_mouse(of));
    if (at == ANNOUNCE) return add_locked(CATS_ABOUT, 1) && go(FENCE);
    if (at == FENCE) return pass_fence();
    if (at == DIM) return add_locked(LIGHT, -load(LIGHT)) && go(FENCE);
    if (at == AWAIT_STORES) return std::ranges::count(self.awaits, 0U) == most_threads && go(LOCK);
    if (at == LOCK) return std::ranges::none_of(state.threads, holds_lock) && go(LOOK_AROUND);
    if (at == LOOK_AROUND) return look_further();
    if (at == ENTER) return add_locked(CATS, 1) && go(INSIDE);
    if (at == INSIDE) return add_locked(CATS, -1) && go(GO);
    if (at == GO) return add_locked(CATS_ABOUT, -1) && end_round(ANNOUNCE);
    return false;
  }

  bool pass_fence() {
    if (without(WITHOUT::FENCE)) return go(LOCK);
    if (load(LIGHT) == 1 && load(KERNEL_FENCES) == 0) return go(DIM);
    const bool were_light = of.kernel != KERNEL::HAS_NONE && !without(WITHOUT::WAIT_FOR_STORES);
    return load(LIGHT) == 1 || were_light ? await_stores() : go(LOCK);
  }
  bool look_further() {
    if (load(self.looks_at) != 0) return go(LOCK);
    const int next = std::max<int>(FIRST_MOUSE, self.looks_at + 1);
    return next == FIRST_MOUSE + of.mice ? go(ENTER) : go(LOOK_AROUND, next);
  }
  bool without(WITHOUT part) const { return of.without == part; }
  // A thread sees what it has stored itself.
  int load(int variable) const {
    const auto own = std::find_if(self.kept_back.rbegin(), self.kept_back.rend(),
                                  [&](const auto& kept) { return kept.first == variable; });
    return own == self.kept_back.rend() ? state.memory[variable] : own->second;
  }
  bool store(int variable, int value) {
    self.kept_back.emplace_back(variable, value);
    return true;
  }
  // Comes after all stores before it.
  bool add_locked(int variable, int amount) {
    if (!self.kept_back.empty()) return false;
    state.memory[variable] += amount;
    return true;
  }
  // The kernel's fence and the wait for stores promise the same: what a thread kept back when they
  // began is out when they end.
  bool await_stores() {
    for (std::size_t other = 0; other < most_threads; ++other)
      self.awaits[other] = state.threads[other].kept_back.size();
    return go(AWAIT_STORES);
  }
  bool go(int step, int looks_at = CATS) {
    self.step = step;
    self.looks_at = looks_at;
    return true;
  }
  bool end_round(int first) { return go(--self.rounds == 0 ? DONE : first); }
};

bool is_cat_inside(const THREAD& thread) { return thread.step == INSIDE; }
// A mouse is, too, as long as its changes are kept back.
bool is_inside(const THREAD& thread) {
  return thread.step == CHANGE || thread.step == LEAVE || thread.step == INSIDE ||
         std::ranges::count(thread.kept_back, std::pair<int, int>(RECORDS, 1)) > 0;
}
bool is_done(const THREAD& thread) { return thread.step == DONE; }

STATE first_state(const CASE& of) {
  STATE state;
  state.memory[LIGHT] = state.memory[KERNEL_FENCES] = of.kernel == KERNEL::HAS_NONE ? 0 : 1;
  for (int number = 0; number < of.mice + of.cats; ++number)
    state.threads[number] = {.step = number < of.mice ? first_of_mouse(of) : ANNOUNCE,
                             .rounds = of.rounds};
  return state;
}

std::vector<STATE> successors(const CASE& of, const STATE& state) {
  std::vector<STATE> next;
  const auto add = [&](auto change) {
    STATE changed = state;
    if (change(changed)) next.push_back(changed);
  };
  if (of.kernel == KERNEL::LOSES_THEM)
    add([](STATE& s) { return std::exchange(s.memory[KERNEL_FENCES], 0) == 1; });
  for (std::size_t number = 0; number < most_threads; ++number) {
    add([&](STATE& s) { return STEPPING{of, s, number}.let_a_store_out(); });
    add([&](STATE& s) { return STEPPING{of, s, number}.step(); });
  }
  return next;
}

// Waiting is spinning, and never ends by itself: STUCK where there is no way on to the end of all.
FAULT fault_of(const CASE& of) {
  std::map<STATE, std::size_t> numbers{{first_state(of), 0}};
  std::vector<STATE const*> states{&numbers.begin()->first};
  std::vector<std::vector<std::size_t>> after;
  std::vector<bool> can_end;
  for (std::size_t number = 0; number < states.size(); ++number) {
    const auto& threads = states[number]->threads;
    if (std::ranges::any_of(threads, is_cat_inside) &&
        std::ranges::count_if(threads, is_inside) > 1)
      return FAULT::NOT_ALONE;
    can_end.push_back(std::ranges::all_of(threads, is_done));
    after.emplace_back();
    for (const STATE& next : successors(of, *states[number])) {
      const auto [at, is_new] = numbers.emplace(next, states.size());
      if (is_new) states.push_back(&at->first);
      after[number].push_back(at->second);
    }
  }
  for (bool goes_on = true; goes_on;) {
    goes_on = false;
    for (std::size_t number = states.size(); number-- > 0;)
      if (!can_end[number] &&
          std::ranges::any_of(after[number], [&](auto next) { return can_end[next]; }))
        can_end[number] = goes_on = true;
  }
  return std::ranges::count(can_end, false) == 0 ? FAULT::NONE : FAULT::STUCK;
}

TEST(CAT_MOUSE_MODEL, KeepsCatsAloneAndLetsEverybodyInWhateverTheKernelDoes) {
  for (const KERNEL kernel : {KERNEL::HAS_FENCES, KERNEL::HAS_NONE, KERNEL::LOSES_THEM})
    for (const CASE& row : {CASE{kernel, 1, 1, 2}, CASE{kernel, 2, 1, 1}, CASE{kernel, 1, 2, 1}})
      EXPECT_EQ(fault_of(row), FAULT::NONE)
          << int(kernel) << ": " << row.mice << " mice, " << row.cats << " cats";
}

TEST(CAT_MOUSE_MODEL, NeedsEachOfTheStepsThatLookAsIfTheyCouldGo) {
  constexpr std::pair<CASE, FAULT> rows[] = {
      {{KERNEL::HAS_FENCES, 1, 1, 1, WITHOUT::FENCE}, FAULT::NOT_ALONE},
      {{KERNEL::LOSES_THEM, 1, 1, 1, WITHOUT::WAIT_FOR_STORES}, FAULT::NOT_ALONE},
      {{KERNEL::HAS_NONE, 1, 1, 1, WITHOUT::LOCKED_ENTRY}, FAULT::NOT_ALONE},
      {{KERNEL::HAS_FENCES, 1, 1, 1, WITHOUT::SECOND_LOOK}, FAULT::NOT_ALONE},
      {{KERNEL::HAS_FENCES, 1, 1, 1, WITHOUT::BACKING_OFF}, FAULT::STUCK}};
  for (const auto& [row, fault] : rows) EXPECT_EQ(fault_of(row), fault) << int(row.without);
}

}  // namespace
