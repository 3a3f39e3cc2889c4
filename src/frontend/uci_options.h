// The answer to `uci`: identity, the option list and "uciok".
#pragma once

class Reporter;

// The six hidden options are listed only with `showHidden`; setoption accepts them anyway.
void writeUciAnswer(Reporter& reporter, bool showHidden);
