#include "LoginView.h"

namespace glinta {

LoginView::LoginView(GlucoseStore *, WindowRegistry *, QWidget *parent) : QWidget(parent) {}

} // namespace glinta
