// The device's session numbers: one after another, never the same twice in a row, across restarts too.
#pragma once

namespace hub {

// They stay below 100000, so that the library's own busy reply, which is not padded, differs from the
// device's.
inline constexpr int kFirstSession = 1;
inline constexpr int kLastSession = 99'999;
inline constexpr int kSessionBlock = 100;

constexpr int session_after(int session, int steps = 1) {
  return (session - kFirstSession + steps) % kLastSession + kFirstSession;
}

// Numbers come in blocks, so that not each of them costs a commit: the journal holds the first number behind
// the block.
class Sessions {
 public:
  Sessions() = default;
  // Behind what a former run may have used.
  explicit Sessions(int first) : next_(first) {}

  bool needs_block() const { return left_ == 0; }
  bool runs_short() const { return left_ < kSessionBlock / 2; }
  // What the journal has to hold before the numbers of one block more may be used.
  int end_of_next_block() const { return session_after(next_, left_ + kSessionBlock); }
  void add_block() { left_ += kSessionBlock; }

  int take() {
    --left_;
    const int session = next_;
    next_ = session_after(next_);
    return session;
  }

 private:
  int next_ = kFirstSession;
  int left_ = 0;
};

}  // namespace hub
