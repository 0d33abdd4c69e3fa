#pragma once

#include <QWidget>

namespace glinta {

class GlucoseStore;
class WindowRegistry;

// Shown in the panel while nobody is signed in.
class SignInPromptView : public QWidget
{
    Q_OBJECT

public:
    SignInPromptView(GlucoseStore *store, WindowRegistry *windows, QWidget *parent = nullptr);
};

} // namespace glinta
