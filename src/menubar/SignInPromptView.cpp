#include "SignInPromptView.h"

namespace glinta {

SignInPromptView::SignInPromptView(GlucoseStore *, WindowRegistry *, QWidget *parent) : QWidget(parent) {}

} // namespace glinta
