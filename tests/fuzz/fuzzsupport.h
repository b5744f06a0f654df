#pragma once

// Shared set-up of the fuzz targets: a private HOME and temporary folder, so that nothing a
// target writes reaches the user's own settings, and silence, since every logged line would
// otherwise cost more than the input it describes.
namespace FuzzSupport {
// Idempotent; call from LLVMFuzzerInitialize or at the top of LLVMFuzzerTestOneInput.
void init(int* argc, char*** argv);
}
