#pragma once

#include <QWidget>

// A form's rectangles are the least its controls get: a larger font or a longer translation grows
// them, and the window with them.
inline void growFormToContents(QWidget* form)
{
    for (QWidget* control : form->findChildren<QWidget*>()) {
        if (!control->minimumSize().isNull())
            control->setMinimumSize(control->minimumSize().expandedTo(control->sizeHint()));
    }
    form->setMinimumSize(form->minimumSize().expandedTo(form->minimumSizeHint()));
    form->resize(form->size().expandedTo(form->minimumSizeHint()));
}
