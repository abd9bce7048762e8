// devices.h - `kiv devices`: what can be captured from and played out to.
#pragma once

// Lists devices, jacks and modes to standard output. Returns an ExitCode.
int listDevices(bool json);
