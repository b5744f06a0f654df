#pragma once

class IndexWindow;
class MainWindow;

// Process-wide pointers to the two window objects. They own nothing and are never cleared.
// MainWindow's constructor fills the first; main fills the second after the first show.
class IndexWindowHolder
{
public:
    static void set(IndexWindow* window);
    static IndexWindow* get();
};

class MainWindowHolder
{
public:
    static void set(MainWindow* window);
    static MainWindow* get();
};

using indexWindowHolder = IndexWindowHolder;
using mainWindowHolder = MainWindowHolder;
