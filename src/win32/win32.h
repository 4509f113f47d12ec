// The whole Windows interface.
#pragma once

#include "win32/console.h"
#include "win32/file.h"
#include "win32/handle.h"
#include "win32/internet.h"
#include "win32/net.h"
#include "win32/ntdll.h"
#include "win32/process.h"
#include "win32/registry.h"
#include "win32/security.h"
#include "win32/service.h"
#include "win32/shell.h"
#include "win32/system.h"
#include "win32/volume.h"
#include "win32/xml.h"
