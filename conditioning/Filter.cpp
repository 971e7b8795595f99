#include "conditioning/Filter.h"

Filter::Filter() : Filter(18) {}

Filter::Filter(int length) : votes(length, false), length(length) {}

void Filter::updateBuffer(bool vote) {
  const int v = vote ? 1 : 0;
  if (full) {
    sum = sum + v - (votes[index] ? 1 : 0);
  } else {
    sum = sum + v;
  }
  // The divisor stays length during warm-up; nobody reads ratio before full.
  ratio = static_cast<float>(sum) / static_cast<float>(length);
  votes[index] = vote;
  index = (index + 1) % length;
  updates = updates + 1;
  if (updates == length) full = true;
}

void Filter::clear() {
  votes.resize(length);
  full = false;
  index = 0;
  sum = 0;
  updates = 0;
}
