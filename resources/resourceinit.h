#pragma once

// Registers the compiled-in resource trees (properties, images, sounds,
// scripts, qt.conf, translations). They live in a static library, whose resource objects
// the linker drops unless something refers to them, so the program calls
// this once before it reads any ":/" path.
void kestrelgapInitResources();
