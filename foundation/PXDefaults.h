#pragma once

#include "foundation/PXColor.h"
#include "foundation/PXError.h"
#include "foundation/PXMutex.h"
#include "foundation/PXObservation.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <functional>
#include <optional>

enum class PXSaving {
    Now,
    Later, ///< With the next write or `synchronize()`: for what changes with each movement of a
           ///< hand.
};

/// The user's settings: flat keys, read at the moment of use.
///
/// Two layers: what the user has set, in one property list file, over what was registered, in
/// memory (and, over both, what was said for this run only). Reads take the value that is in memory
/// and never touch the disk. A write changes the value in memory, then takes a lock file beside the
/// settings, reads them again, puts in only the keys that this process changed and replaces the
/// file in one step, so that two running programs do not lose each other's values. A settings file
/// that does not parse is renamed, kept, and logged once. Any thread; no lock is held while
/// observers are called.
class PXDefaults final {
public:
    using Function = std::function<void(const QString &key)>;

    /// Those of the program: `$XDG_CONFIG_HOME/Tolvane/com.pexarworks.tolvane.plist`.
    static PXDefaults &standardUserDefaults();

    /// The settings in `filePath`, which need not exist yet; its folder is made with the first
    /// write. What cannot be read counts as not set, with a warning in the log, and is not
    /// overwritten either.
    explicit PXDefaults(QString filePath);

    [[nodiscard]] const QString &filePath() const { return _filePath; }

    /// Factory values; of two for one key the later one counts. Tells no observers.
    void registerDefaults(const QVariantMap &values);

    /// A value for this run only, over the user's: what a command line says. Never saved; tells no
    /// observers. One that no property list can hold changes nothing; the log says so.
    void setArgumentValue(const QString &key, const QVariant &value);

    /// This run's value, else the user's, else the registered one, else an invalid QVariant; in
    /// the types that PXPropertyList reads.
    [[nodiscard]] QVariant value(const QString &key) const;
    /// Only what the user has set.
    [[nodiscard]] QVariant persistentValue(const QString &key) const;
    /// Only the factory value.
    [[nodiscard]] QVariant registeredValue(const QString &key) const;
    /// All layers, the upper over the lower.
    [[nodiscard]] QVariantMap dictionaryRepresentation() const;

    // A number is read whatever number it was stored as, or from a text that starts with one; cut
    // toward zero and clamped for an int. Anything else, and a key without value, reads as zero or
    // empty. A text is true when it starts with Y, y, T, t or a digit from 1 to 9.
    [[nodiscard]] int intValue(const QString &key) const;
    [[nodiscard]] float floatValue(const QString &key) const;
    /// How long something is to last, in seconds: nothing below zero, at most an hour.
    [[nodiscard]] double secondsValue(const QString &key) const;
    [[nodiscard]] bool boolValue(const QString &key) const;
    [[nodiscard]] QString stringValue(const QString &key) const;
    [[nodiscard]] QByteArray dataValue(const QString &key) const;
    /// The registered colour, with a log line, where the user's bytes are no colour.
    [[nodiscard]] std::optional<PXColor> colorValue(const QString &key) const;

    /// The value holds for this process also when it could not be saved; the next write that
    /// succeeds saves it too. A value that no property list can hold, alone or together
    /// with the others, changes nothing.
    PXExpected<void> setValue(const QString &key, const QVariant &value,
                              PXSaving saving = PXSaving::Now);
    /// Back to the registered value.
    PXExpected<void> removeValue(const QString &key);

    /// Takes in what other programs have changed and saves what is left to save.
    PXExpected<void> synchronize();

    /// Calls `function` with each key whose value changes: on the thread that sets it, or, for what
    /// another program changed, on the thread that notices with `synchronize` or a write.
    PXObservation addObserver(Function function);

private:
    void _change(const QString &key, const QVariant &value);
    PXExpected<QVariantMap> _readFile() PX_REQUIRES(_fileLock);
    /// The same while the lock file is held.
    PXExpected<QVariantMap> _readFileOrPutItAside() PX_REQUIRES(_fileLock);
    PXExpected<QVariantMap> _mergeIntoFile(const QVariantMap &changes) PX_REQUIRES(_fileLock);

    const QString _filePath;
    /// One writer of this process at a time; taken before `_lock`, held during file access.
    PXMutex _fileLock;
    mutable PXMutex _lock;
    QVariantMap _arguments PX_GUARDED_BY(_lock);
    QVariantMap _registered PX_GUARDED_BY(_lock);
    QVariantMap _persistent PX_GUARDED_BY(_lock);
    /// Changed here and not yet in the file; an invalid value removes the key.
    QVariantMap _unsaved PX_GUARDED_BY(_lock);
    /// What was no colour when the log was told; it is asked for at each painting.
    mutable QVariantMap _toldColors PX_GUARDED_BY(_lock);
    PXObservers<QString> _observers;
};
