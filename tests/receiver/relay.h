// tests/receiver/relay.h: a line that loses, doubles and reorders datagrams, the
// same ones each time for the same seed.
//
// Loss falls on Ethernet frames; a datagram is lost with any of its fragments.
// The line is good or bad (Gilbert and Elliott): bad, it loses every frame.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

struct Line {
  double loss = 0;     ///< chance that a frame is lost while the line is good
  double to_bad = 0;   ///< chance of each frame that the line turns bad behind it
  double to_good = 1;  ///< and good again: bursts are 1 / to_good frames long
  double doubled = 0;  ///< chance that a datagram comes twice
  unsigned late = 0;   ///< how many that were sent later may come before one
};

/// Frames of 1,500 bytes that carry a datagram of `size` bytes.
inline std::size_t frames_of(std::size_t size) { return (size + 8 + 1479) / 1480; }

class Relay {
 public:
  Relay(const Line& line, unsigned seed) : line_(line), random_(seed) {}

  /// What arrives of `sent`, in the order of arrival.
  std::vector<std::string> carry(const std::vector<std::string>& sent);

  /// Nothing is sent while `frames` could have been. True if one would have been lost.
  bool pass(std::size_t frames);

 private:
  bool happens(double chance) { return static_cast<double>(random_()) < chance * 4294967296.0; }

  Line line_;
  std::mt19937 random_;
  bool bad_ = false;
};
