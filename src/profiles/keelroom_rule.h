// Keelroom volumes of an old driver do not hold the profiles of Windows 10.
#pragma once

#include <string_view>

// Is this Windows 10 and the location, by the drive letter of the path or of where it really leads, on a Keelroom
// volume whose driver is too old? True has its line in the log.
bool IsOnOldKeelroom(std::u16string_view location);
