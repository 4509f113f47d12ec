// Windows Media network sharing keeps files of the Default and Public profiles open.
#pragma once

// While it lives the service stands still: one that runs is stopped and, unless it runs by then, started again at the
// end.
class MediaSharingPause {
 public:
  MediaSharingPause();
  ~MediaSharingPause();
  MediaSharingPause(const MediaSharingPause&) = delete;
  MediaSharingPause& operator=(const MediaSharingPause&) = delete;

 private:
  bool stopped_;
};
