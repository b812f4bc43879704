// The platform's device handle as the command layer passes it around. It is
// the platform's HANDLE (a pointer on Windows and in the simulated PC alike);
// the senders check that the two agree. Bridges carry it without looking in.
#pragma once

using DeviceHandle = void*;
