#include "resourceinit.h"

#include <QtGlobal>

// Q_INIT_RESOURCE must be used outside any namespace.
void kestrelgapInitResources()
{
    Q_INIT_RESOURCE(kestrelgap);
    Q_INIT_RESOURCE(etc);
    Q_INIT_RESOURCE(translations);
}
