// The keys that the launcher reads in an item.

#pragma once

#include <string>

// "program", say, for "Programm" and "command"; "" for a key that resembles
// none. A key of an item means itself.
std::string KeyMeantBy(const std::string& key);
