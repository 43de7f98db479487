// frame/command_line.h: options of the forms -x:value and --name=value.
#pragma once

#include <string>

#include "frame/words.h"

/// Applies `argument` by the rules of parse_command_line() and returns what it did. "-h"
/// prints nothing here, and "-o" reads no file.
Word apply_argument(const std::string& argument);

/// Why read_command_line() ended.
enum class ReadEnd {
  kAll,       ///< there are no more arguments
  kUsage,     ///< -h
  kNoConfig,  ///< -o, and the file `config_name` can't be opened
};

/// Applies the arguments as parse_command_line() does, but prints nothing and does not end
/// the process. Calls `heard` (may be empty) with each argument and with each line that -o
/// reads, in that order.
ReadEnd read_command_line(int argc, char** argv, const WordListener& heard = {});

/// Applies the arguments after the first from left to right. An argument that is
/// not an option is ignored; the character behind the letter is skipped whatever it
/// is; an option of two characters has no value and sets nothing.
///
/// -o reads the file that it names before the next argument is applied, and ends
/// the process with status 1 if the file can't be opened; -h prints the usage text
/// and ends the process, too.
void parse_command_line(int argc, char** argv);

/// If an argument is "--help" or "--version", prints what the first of them asks
/// for and returns true. The caller then ends with status 0 before it reads, writes
/// or locks anything.
bool answer_word(int argc, char** argv);

/// Prints the usage text for the program path `argv0`, waits 2 s and ends the
/// process with status 1.
[[noreturn]] void print_info(char* argv0);
