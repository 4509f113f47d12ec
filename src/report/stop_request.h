// Somebody wants the command to end: Ctrl+C, Ctrl+Break, the window closed, a log-off, a shutdown.
//
// Windows would end the process in the middle of its work. Once Listen was called it does not: what moves data asks
// IsStopRequested between two items and between the pieces of a large file, and with yes it fails as it fails for any
// other reason, so the command takes back what it did. What takes back does not ask, nor does anything behind the move.
#pragma once

// One run of the program. The log outlives it.
class StopRequests {
 public:
  StopRequests();
  ~StopRequests();  // the log is told of a request that came when nobody asked any more
  StopRequests(const StopRequests&) = delete;
  StopRequests& operator=(const StopRequests&) = delete;

  // From now on, to the end of the process. Where Windows refuses that, requests end the process as ever.
  static void Listen();
};

// Is the command to end? The log is told who asked, once. Leaves the last error as it was.
bool IsStopRequested();
