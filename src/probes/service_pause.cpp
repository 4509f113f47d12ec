#include "probes/service_pause.h"

#include "probes/services.h"
#include "report/log.h"

const ServicePause::Service ServicePause::kMediaSharing{kMediaSharingService, [] {
                                                          if (!IsServiceRunning(kMediaSharingService))
                                                            ControlServiceAndWait(kMediaSharingService, kStartService);
                                                        }};

const ServicePause::Service ServicePause::kQuillbay{kQuillbayService, [] {
                                                      if (!StartQuillbayService())
                                                        Log(u"#ERROR: Failed to start Quillbay Service.");
                                                    }};

void ServicePause::Begin() { wasRunning_ = StopServiceIfRunning(service_.name); }

void ServicePause::Expect() { wasRunning_ = IsServiceRunning(service_.name); }

void ServicePause::End() {
  if (!wasRunning_) return;
  wasRunning_ = false;
  service_.start();
}
