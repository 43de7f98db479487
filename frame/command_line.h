// frame/command_line.h: options of the forms -x:value and --name=value.
#pragma once

#include <string>

#include "frame/words.h"

/// Sets what `argument` stands for, by the rules of parse_command_line(), and returns what
/// it did. "-h" and "-o" do no more than that here.
Word apply_argument(const std::string& argument);

/// Why the reading of the command line ended.
enum class ReadEnd {
  kAll,       ///< there are no more arguments
  kUsage,     ///< -h
  kNoConfig,  ///< -o, and the file, `config_name`, can't be opened
};

/// Applies the arguments as parse_command_line() does, but prints and ends nothing.
/// `heard` (may be empty) is told each argument, and what -o reads, in that order.
ReadEnd read_command_line(int argc, char** argv, const WordListener& heard = {});

/// Applies the arguments after the first from left to right. What is no option
/// is ignored; the character behind the letter is skipped unseen; an option of
/// two characters has no value and sets nothing.
///
/// -o reads the file it names at its own place and ends the process with
/// status 1 if that can't be opened; -h prints the usage text and ends it too.
void parse_command_line(int argc, char** argv);

/// Prints the usage text or the version if an argument is "--help" or
/// "--version", the first of them; true if there was one. Such a run is to end
/// with status 0 before it reads, writes or locks anything.
bool answer_word(int argc, char** argv);

/// Prints the usage text for the program path `argv0`, waits 2 s and ends the
/// process with status 1.
[[noreturn]] void print_info(char* argv0);
