// receiver/tell/page_shell.h: what is the same in every page: style and script.
#pragma once

/// From the doctype to the opening of the body. Nothing may be loaded from anywhere.
extern const char kPageHead[];

/// The end of the page, from its script on. Without the script all can be read, too.
extern const char kPageEnd[];
