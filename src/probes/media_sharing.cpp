#include "probes/media_sharing.h"

#include "probes/services.h"

MediaSharingPause::MediaSharingPause() : stopped_(IsServiceRunning(kMediaSharingService)) {
  if (stopped_) ControlServiceAndWait(kMediaSharingService, win32::SERVICE_CONTROL_STOP);
}

MediaSharingPause::~MediaSharingPause() {
  if (stopped_ && !IsServiceRunning(kMediaSharingService)) ControlServiceAndWait(kMediaSharingService, kStartService);
}
