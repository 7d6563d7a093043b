#include "report/reportexport.h"

namespace velmora::report {

QString txtPath(const QString& chosen)
{
    const qsizetype slash = chosen.lastIndexOf(QLatin1Char('/'));
    const qsizetype dot = chosen.lastIndexOf(QLatin1Char('.'));
    // A dot in a folder name or at the start of a hidden file's name starts no extension.
    if (dot > slash + 1)
        return chosen.left(dot + 1) + QStringLiteral("txt");
    return chosen + QStringLiteral(".txt");
}

QString thresholdText(const QString& typed)
{
    bool numeric = false;
    double value = typed.trimmed().toDouble(&numeric);
    QString text = numeric ? typed : QString();
    if (!numeric)
        value = 0;
    if (value >= 10000)
        return QStringLiteral("10000");
    if (value <= 9)
        return QStringLiteral("10");
    return text;
}

void writeExport(const platform::Platform& platform, QObject* context, const QString& path, QStringList lines,
                 WriteMode mode, std::function<void(WriteOutcome)> done)
{
    platform::TextFiles* files = platform.files;
    platform.worker->run(context, [files, path, lines = std::move(lines), mode, done = std::move(done)]()
                                      -> std::function<void()> {
        WriteOutcome outcome;
        if (mode == WriteMode::AppendOrCreate && files->exists(path))
            outcome.ok = files->appendLines(path, lines);
        else
            outcome.ok = files->writeLines(path, lines);
        if (!outcome.ok)
            outcome.error = files->lastError();
        return [done, outcome] { done(outcome); };
    });
}

} // namespace velmora::report
