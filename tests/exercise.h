// Every way of looking at a database, for tests and the fuzzer that feed it damaged files.
#ifndef EXERCISE_H
#define EXERCISE_H

#include "zel.h"

#include <cstdint>
#include <random>
#include <string>

// Calls every query with indexes and numbers inside, at and beyond their ranges, and prints every block to `report`, if
// there is one.
void exercise(ZELDATA* db, FILE* report);

// Reads a file that lies in memory and, if it opens, exercises it. Whether it opened.
bool exercise_file(const std::string& bytes, FILE* report);

// A few changes at random to the bytes of a file: single bits, integers of either byte order, pieces that vanish, repeat
// or come from elsewhere.
std::string mutated(std::string bytes, std::mt19937& random);

#endif
