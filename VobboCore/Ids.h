#pragma once
// Identities of the records the app makes (tasks, notes, alarms, queued sync
// changes): random version-4 UUIDs in lower-case text,
// "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx".

#include <string>
#include <string_view>

namespace vobbo::Ids {

// A fresh id from 122 random bits of the system's random source.
std::string uuid();

// Whether text is an id of that shape: 8-4-4-4-12 lower-case hexadecimal digits.
bool isUuid(std::string_view text);

}  // namespace vobbo::Ids
