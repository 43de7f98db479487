// send/code_page.h: converts file names from the local character set to the wire's.
#pragma once

#include <string>

/// Takes the locale of the environment and notes its character set in
/// `settings.lcs` (nl_langinfo(3), CODESET).
void get_lcs();

/// Converts `src` up to its first NUL between the local character set and
/// `code`: from `code` to local when `to_local`, else the other way.
///
/// Returns false, with `dst` untouched, if there is no local character set or the
/// system can't convert between the two. Otherwise `dst` gets what could be
/// converted: the text is cut just before the first bad character, and at 8,191
/// bytes; a cut text also returns false. If the two sets have the same name, the
/// text is copied as it is. `dst` may be `src`.
bool convert(const std::string& src, std::string& dst, const char* code, bool to_local);

/// Returns `name`, up to its first NUL, in the wire's code page, as far as convert()
/// can convert it. Sets `cut` to true if part of the name was lost.
std::string fname_to_send(const std::string& name, bool& cut);
