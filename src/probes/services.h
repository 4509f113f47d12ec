// Services: is one running, start and stop one, and the start type of the product's own.
#pragma once

#include "report/service_path.h"
#include "win32/constants.h"

inline constexpr const char16_t* kMediaSharingService = u"WMPNetworkSvc";
inline constexpr win32::DWORD kStartService = 101;  // for ControlServiceAndWait, beside the codes of ControlService

// True only for a service in the state SERVICE_RUNNING; false for a null name and every failure.
bool IsServiceRunning(const char16_t* name);

// Starts the service (kStartService) or sends it a control code, and waits, without limit, while it is starting or
// stopping. True when no call left an error: a service that is running already is not "started".
bool ControlServiceAndWait(const char16_t* name, win32::DWORD code);

// Stops the service if it runs. Answers whether it did.
bool StopServiceIfRunning(const char16_t* name);

// Sets the product's service to automatic start, starts it and waits up to a minute. True when it left the
// start-pending state.
bool StartQuillbayService();

// Sets the product's service to manual start; it is neither stopped nor disabled. Logs the outcome.
bool DisableQuillbayService();
// The same, and stops it: there is no work for it any more.
void RetireQuillbayService();
