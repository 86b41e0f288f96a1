// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& bytes);

// The text with its first occurrence of `from`, which must be there, replaced.
std::string replaced(std::string text, const std::string& from, const std::string& to);

// All texts, one after the other.
std::string joined(const std::vector<std::string>& texts);

// What standard output and standard error received while a function ran.
struct Printed {
  std::string out;
  std::string err;
};
Printed capture(const std::function<void()>& function);

// A run of a program to its end. A signal N counts as status 128 + N.
struct Outcome {
  int status;
  std::string out;
  std::string err;
};
using Environment = std::vector<std::pair<std::string, std::string>>;
Outcome run(const std::vector<std::string>& words, const Environment& environment = {});

// The built programs.
Outcome bfcl_library(std::vector<std::string> words, const Environment& environment = {});

Outcome bfcl_package(std::vector<std::string> words, const Environment& environment = {});

// The bytes of a package that holds the sections, each a name and its bytes.
using Sections = std::vector<std::pair<std::string, std::string>>;
std::string make_package(const Sections& sections);

// Writes DIR/spec.xml of one function with its files DIR/top.v and DIR/FUNCTION.cl, and returns the
// specification's path.
std::string write_component(const std::string& directory, const std::string& function);

// The bytes of a package's section as objcopy finds it, or "(none)".
std::string section_of(const std::string& package, const std::string& section);

// The names of a package's sections as readelf lists them, one a line.
std::string section_names_of(const std::string& package);

// Runs an action in a child process while this one has a file's lock. Whether the action waited for it.
bool waits_for_lock(const std::string& path, const std::function<void()>& action);

// Each test works in a new directory, which is removed after it.
class InTempDir : public testing::Test {
protected:
  InTempDir();
  ~InTempDir() override;

private:
  std::filesystem::path m_old;
  std::filesystem::path m_new;
};
