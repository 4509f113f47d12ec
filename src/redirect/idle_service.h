// The product's service once a file redirection has ended.
#pragma once

// When neither registry keys nor files are redirected any more, the service has nothing to do: it is stopped and starts
// by hand only. Logs both settings.
void StopServiceWithoutWork();
