#pragma once

// A system interface that a test can replace with a stand-in. `Interface` derives from
// Seam<Interface> and provides a private `static Interface* systemInstance()`, befriending the seam.
template <class Interface>
class Seam
{
public:
    // The stand-in a test installed, or the system's own.
    static Interface* instance()
    {
        Interface* standIn = installed();
        return standIn ? standIn : Interface::systemInstance();
    }
    // Not owned. nullptr restores the system's own.
    static void setInstance(Interface* standIn) { installed() = standIn; }

private:
    static Interface*& installed()
    {
        static Interface* standIn = nullptr;
        return standIn;
    }
};
