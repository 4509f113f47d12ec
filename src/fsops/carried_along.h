// What a command takes along with the files that it moves or copies.
#pragma once

struct CarriedAlong {
  bool ntfsPermissions = true;  // with security, streams and times
  bool shares = true;           // network shares follow
};
