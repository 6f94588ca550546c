// The EFTP link facility of libzat_ms.so for C++ programs: parameter stores, messages by their table, the
// framed command port with its receivers, and links over serial lines and TCP. A program includes this header
// and links with the object; compiler and standard library must be those that the object was built with,
// since texts and stores cross the border.
//
//   EFTPLink.h    links, and how both sides of one are used
//   EFTPWork.h    messages: the header, data parts, the operations of a port
//   EFTPMisc.h    parameter stores (SqueezeT) and the parsers of fields
//   PortSEtx.h    the port itself, for links of your own
//   PortSElc.h    its generic receivers
//   gabids.h      the tags of parameters
//
// Threads: a port, a link and a store belong to one caller at a time. What parses messages or runs a port writes to
// the library's log, so those calls come one at a time in a process, together with those of zat_ms.h.
#pragma once
#include "EFTPLink.h"
#include "EFTPMisc.h"
#include "EFTPWork.h"
#include "PortSElc.h"
#include "PortSEtx.h"
#include "gabids.h"
