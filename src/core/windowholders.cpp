#include "windowholders.h"

namespace {
IndexWindow* heldIndexWindow = nullptr;
MainWindow* heldMainWindow = nullptr;
}

void IndexWindowHolder::set(IndexWindow* window)
{
    heldIndexWindow = window;
}

IndexWindow* IndexWindowHolder::get()
{
    return heldIndexWindow;
}

void MainWindowHolder::set(MainWindow* window)
{
    heldMainWindow = window;
}

MainWindow* MainWindowHolder::get()
{
    return heldMainWindow;
}
