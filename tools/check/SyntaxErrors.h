// Why a text is not JSON for the launcher.

#pragma once

#include <string>

#include "tools/check/Findings.h"

// One finding for each place where the parser failed, in its order; empty
// exactly when `JsonObject(text.data(), text.size())` is a document.
Findings FindSyntaxErrors(const std::string& text);
