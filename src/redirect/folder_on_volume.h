// Folder redirection onto a whole volume: the contents live on the volume, which is mounted in the folder's place.
//
// The folder at the source path keeps everything of its own - security, streams, attributes, times - under the mounted
// volume. Neither operation prints its result.
#pragma once

#include <string>

#include "fsops/carried_along.h"

// Moves the contents of `source` to the volume ("\\?\Volume{...}\"), mounts it at `source` and records the pair. False:
// everything is back at its place and the volume mounted nowhere, or the log says where the data is.
bool RedirectFolderOntoVolume(const std::u16string& source, const std::u16string& volume, CarriedAlong carried);
// All that RedirectFolderOntoVolume asks before it changes anything; for a run that only looks.
bool MayRedirectFolderOntoVolume(const std::u16string& source, const std::u16string& volume);

// Is `target` (a volume's name, with or without its last backslash, or a folder that it is mounted on) the volume that
// is mounted at `source`? Its name then goes to `volume`.
bool IsVolumeMountedAt(const std::u16string& source, const std::u16string& target, std::u16string& volume);

// Moves what is on the volume that is mounted at `source` back to an ordinary folder there and takes the record away.
// `target` is the volume as the command names it. Results as above.
bool RemoveFolderFromVolume(const std::u16string& source, const std::u16string& target, const std::u16string& volume,
                            CarriedAlong carried);
