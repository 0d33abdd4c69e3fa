// Reads the snapshot file in a tight loop while another process replaces it, and reports how each read
// went: "good", "missing" (no file at that instant) or "bad" (the bytes did not decode). It prints "ready"
// after its first good read and stops once the stop file appears.
//
//   snapshot_reader <snapshot file> <stop file>

#include "DecodingError.h"
#include "GlucoseSnapshot.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <cstdio>

using namespace glinta;

int main(int argc, char *argv[])
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: snapshot_reader <snapshot file> <stop file>\n");
        return 2;
    }
    const QString path = QString::fromLocal8Bit(argv[1]);
    const QString stopPath = QString::fromLocal8Bit(argv[2]);

    qint64 good = 0;
    qint64 missing = 0;
    qint64 bad = 0;
    QSet<qint64> versions;
    while (!QFileInfo::exists(stopPath)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            ++missing;
            continue;
        }
        const QByteArray bytes = file.readAll();
        try {
            versions.insert(decodeSnapshot(bytes).updatedAt.toMSecsSinceEpoch());
            if (good++ == 0) {
                std::printf("ready\n");
                std::fflush(stdout);
            }
        } catch (const DecodingError &error) {
            if (bad++ == 0)
                std::fprintf(stderr, "first bad read (%lld bytes): %s\n",
                             static_cast<long long>(bytes.size()), error.what());
        }
    }
    std::printf("good=%lld missing=%lld bad=%lld versions=%lld\n", static_cast<long long>(good),
                static_cast<long long>(missing), static_cast<long long>(bad),
                static_cast<long long>(versions.size()));
    return 0;
}
