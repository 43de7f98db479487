// send/code_page.h: file names from the local character set to the wire's.
#pragma once

#include <string>

/// Takes the locale of the environment and notes its character set in
/// `settings.lcs` (nl_langinfo(3), CODESET).
void get_lcs();

/// Converts `src` up to its first NUL between the local character set and
/// `code`: from `code` to local when `to_local`, else the other way.
///
/// False, with `dst` untouched, if there is no local character set or the two
/// can't be converted. Otherwise `dst` gets what could be converted: cut just
/// before the first bad character, and at 8,191 bytes; false then, too. Equal
/// names of the two sets copy the text as it is. `dst` may be `src`.
bool convert(const std::string& src, std::string& dst, const char* code, bool to_local);

/// `name` up to its first NUL in the wire's code page, as far as convert()
/// brings it. `cut` becomes true if something of it is missing there.
std::string fname_to_send(const std::string& name, bool& cut);
