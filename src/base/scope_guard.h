// A scope guard: runs an action when the scope that holds it ends, on every way out of it
// (return, break, exception), unless it was dismissed first. Guards end in the reverse order of
// their declaration, like every other local, so an object declared after the guard is gone
// before the action runs.
#pragma once

#include <type_traits>
#include <utility>

namespace tw {

template <class Action>
class [[nodiscard]] ScopeGuard {
 public:
  static_assert(std::is_nothrow_move_constructible_v<Action>,
                "the action is moved into the guard and must not throw doing so");

  explicit ScopeGuard(Action action) noexcept : action_(std::move(action)) {}
  ScopeGuard(const ScopeGuard&) = delete;
  ScopeGuard& operator=(const ScopeGuard&) = delete;
  ScopeGuard(ScopeGuard&&) = delete;
  ScopeGuard& operator=(ScopeGuard&&) = delete;
  ~ScopeGuard() {
    if (active_) action_();
  }

  // The action will not run.
  void Dismiss() noexcept { active_ = false; }

 private:
  Action action_;
  bool active_ = true;
};

}  // namespace tw
