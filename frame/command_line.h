// frame/command_line.h: options of the form -x:value.
#pragma once

/// Applies the arguments after the first from left to right. What is no option
/// is ignored; the character behind the letter is skipped unseen; an option of
/// two characters has no value and sets nothing.
///
/// -o reads the file it names at its own place and ends the process with
/// status 1 if that can't be opened; -h prints the usage text and ends it too.
void parse_command_line(int argc, char** argv);

/// Prints the usage text for the program path `argv0`, waits 2 s and ends the
/// process with status 1.
[[noreturn]] void print_info(char* argv0);
