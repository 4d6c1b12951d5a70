// Histories as text: steps separated by ";", each "what is done" or "what is done > what comes of it".
#pragma once

#include <gtest/gtest.h>

#include <span>
#include <sstream>
#include <string>

struct History {
  const char* name;
  const char* steps;
};

/// Has a new Player play() each history step by step and expects what is written.
template <class Player>
void expectAll(std::span<const History> histories) {
  for (const History& history : histories) {
    SCOPED_TRACE(history.name);
    Player player;
    std::istringstream steps(history.steps);
    for (std::string step; std::getline(steps >> std::ws, step, ';');) {
      const std::string done = step.substr(0, step.find(" > "));
      const std::string outcome = player.play(done);
      EXPECT_EQ(done + (outcome.empty() ? "" : " > " + outcome), step);
    }
  }
}
