#pragma once

#include <QWidget>

namespace glinta {

class GlucoseStore;
class WindowRegistry;

// The content of the "login" window.
class LoginView : public QWidget
{
    Q_OBJECT

public:
    LoginView(GlucoseStore *store, WindowRegistry *windows, QWidget *parent = nullptr);
};

} // namespace glinta
