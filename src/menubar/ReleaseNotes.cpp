#include "menubar/ReleaseNotes.h"

using namespace Qt::StringLiterals;

namespace glinta {

// The notes are history: they keep the wording they shipped with, even where it names the Mac.
const QList<ReleaseNote> &releaseNotes()
{
    static const QList<ReleaseNote> notes{
        {u"1.3.5"_s,
         u"July 2026"_s,
         {u"Fixed the stale-data warning in the menu bar. When Glinta could not reach LibreLinkUp at all, "
          u"the "
          u"last reading kept showing with no \u26A0\uFE0E \u2014 looking current while it quietly aged. The "
          u"warning now appears on time no matter why the data stopped."_s,
          u"Check for Updates is now properly dimmed while a check is already running, and Glinta stops "
          u"retrying every minute if its saved password is removed from the Keychain."_s}},
        {u"1.3.4"_s,
         u"July 2026"_s,
         {u"Glinta now tells you when an update is waiting: a dot beside the reading in the menu bar, and a "
          u"row "
          u"at the top of the panel you can click to install. Background update alerts used to open behind "
          u"whatever you were working in, where they could sit unseen for days."_s}},
        {u"1.3.3"_s,
         u"July 2026"_s,
         {u"Fixed a widget that came up blank staying blank \u2014 it waited a quarter of an hour before "
          u"looking "
          u"again, so the only cure was resizing it. It now tries again after a minute."_s}},
        {u"1.3.2"_s,
         u"July 2026"_s,
         {u"Fixed the widget freezing after an update. Updating replaces the app while the widget is still "
          u"running the old copy, so it kept showing an old reading while Glinta was fetching new ones; "
          u"Glinta "
          u"now wakes it on the first launch after an update."_s,
          u"What's New: the gear menu now shows what changed in this version and the ones before it."_s}},
        {u"1.3.1"_s,
         u"July 2026"_s,
         {u"Preferences moved out of the gear menu into a Settings window, with room for the target range "
          u"and "
          u"alerts still to come."_s,
          u"Settings now shows which LibreLinkUp account is signed in \u2014 the panel never said."_s,
          u"Signing out asks first: it deletes the saved password, which cannot be undone without typing it "
          u"again."_s}},
        {u"1.3"_s,
         u"July 2026"_s,
         {u"Glinta updates itself. Signed, notarized updates arrive in the background and install with one "
          u"click."_s}},
        {u"1.2.1"_s,
         u"July 2026"_s,
         {u"Fixed the poll loop stopping after a network blip or a Mac waking from sleep \u2014 readings now "
          u"resume on their own."_s}},
        {u"1.2"_s,
         u"July 2026"_s,
         {u"Desktop widgets: current reading, chart, and 12-hour stats."_s,
          u"Sign-in moved to its own window so password AutoFill works."_s}},
        {u"1.1"_s,
         u"June 2026"_s,
         {u"A Launch at Login toggle, and a large widget with the chart and 12-hour statistics."_s}},
        {u"1.0"_s,
         u"June 2026"_s,
         {u"The first release: your FreeStyle Libre reading in the menu bar, with a trend arrow and a "
          u"12-hour "
          u"chart."_s}},
    };
    return notes;
}

} // namespace glinta
