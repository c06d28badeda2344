// A plugin that lets a test use the real client as a person would: it finds widgets and actions by
// object name, clicks, types, reads and takes pictures. Loaded by Qt itself when the test says so
// (QT_QPA_GENERIC_PLUGINS=puppet:SOCKET); the program knows nothing of it.
//
// One command a line, words separated by tabs; one line of answer, "ok\t…" or "error\t…". puppet.py
// is the other end.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QGenericPlugin>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QSocketNotifier>
#include <QTimer>
#include <QTreeView>
#include <QVariant>
#include <functional>
#include <map>

namespace {

QList<QWidget*> AllWidgets() {
    QList<QWidget*> all;
    for (QWidget* top : QApplication::topLevelWidgets()) {
        all << top << top->findChildren<QWidget*>();
    }
    return all;
}

// Visible ones first: a hidden tool may have a control of the same name. "name@other" is the one in
// the window of the other.
template <class T>
T* FindByName(const QString& whole) {
    T* hidden = nullptr;
    const QString name = whole.section('@', 0, 0);
    const QString other = whole.section('@', 1);
    QWidget* beside = other.isEmpty() ? nullptr : FindByName<QWidget>(other);
    if (!beside && !other.isEmpty()) return nullptr;
    for (QWidget* widget : AllWidgets()) {
        if (beside && widget->window() != beside->window()) continue;
        if (widget->objectName() != name) continue;
        if (auto* found = qobject_cast<T*>(widget)) {
            if (widget->isVisible()) return found;
            hidden = found;
        }
    }
    return hidden;
}

QAction* FindAction(const QString& whole) {
    QAction* disabled = nullptr;
    const QString name = whole.section('@', 0, 0);
    const QString other = whole.section('@', 1);
    const auto* beside = other.isEmpty() ? nullptr : FindByName<QWidget>(other);
    for (QWidget* widget : AllWidgets()) {
        QList<QAction*> actions = widget->actions();
        actions += widget->findChildren<QAction*>();
        for (QAction* action : actions) {
            if (action->objectName() != name) continue;
            const auto* owner = qobject_cast<QWidget*>(action->parent());
            if (beside && (!owner || owner->window() != beside->window())) continue;
            if (action->isEnabled()) return action;
            disabled = action;
        }
    }
    return disabled;
}

void Mouse(QWidget* widget, QPoint at) {
    const QPointF global = widget->mapToGlobal(at);
    for (auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
        auto* event = new QMouseEvent(
            type, QPointF(at), global, Qt::LeftButton,
            type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton, Qt::NoModifier);
        QCoreApplication::postEvent(widget, event);
    }
}

void Key(QWidget* widget, const QKeySequence& sequence) {
    const QKeyCombination key = sequence[0];
    QString text = key.key() == Qt::Key_Space ? QStringLiteral(" ") : QString();
    for (auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
        QCoreApplication::postEvent(widget,
                                    new QKeyEvent(type, key.key(), key.keyboardModifiers(), text));
    }
}

// The row of a path of texts ("System/home/…", any column), expanding is not done here.
QModelIndex FindRow(const QAbstractItemModel* model, const QStringList& path) {
    QModelIndex at;
    for (const QString& part : path) {
        QModelIndex found;
        for (int row = 0; row < model->rowCount(at) && !found.isValid(); ++row) {
            for (int column = 0; column < model->columnCount(at); ++column) {
                const QModelIndex cell = model->index(row, column, at);
                if (cell.data().toString() == part) found = cell.siblingAtColumn(column);
                if (found.isValid()) break;
            }
        }
        if (!found.isValid()) return {};
        at = found.siblingAtColumn(0);
        if (&part == &path.back()) return found;
    }
    return at;
}

QString Describe(const QWidget* widget) {
    QString text;
    if (const auto* label = qobject_cast<const QLabel*>(widget)) text = label->text();
    if (const auto* button = qobject_cast<const QAbstractButton*>(widget)) text = button->text();
    if (const auto* field = qobject_cast<const QLineEdit*>(widget)) text = field->text();
    if (const auto* menu = qobject_cast<const QComboBox*>(widget)) text = menu->currentText();
    return QStringLiteral("%1\t%2\t%3\t%4\t%5")
        .arg(widget->metaObject()->className(), widget->objectName(),
             widget->isEnabled() ? "on" : "off", text.simplified(), widget->accessibleName());
}

QString Run(const QStringList& words) {
    const QString command = words.value(0);
    const QString name = words.value(1);
    const QString argument = words.value(2);
    if (command == "names") {
        QStringList lines;
        for (QWidget* widget : AllWidgets()) {
            if (widget->isVisible() && !widget->objectName().startsWith("qt_"))
                lines << Describe(widget);
        }
        return "ok\t" + lines.join('\v');
    }
    if (command == "grab") {
        QWidget* widget =
            words.size() > 2 ? FindByName<QWidget>(argument) : QApplication::activeWindow();
        if (!widget && words.size() <= 2) {
            for (QWidget* top : QApplication::topLevelWidgets()) {
                if (top->isVisible()) widget = top;
            }
        }
        if (!widget) return "error\tno such window";
        return widget->window()->grab().save(name) ? QStringLiteral("ok")
                                                   : QStringLiteral("error\tsave");
    }
    if (command == "trigger") {
        QAction* action = FindAction(name);
        if (!action) return "error\tno action " + name;
        if (!action->isEnabled()) return "error\tdisabled " + name;
        QTimer::singleShot(0, action, &QAction::trigger);
        return "ok";
    }
    QWidget* widget = FindByName<QWidget>(name);
    if (command == "visible") return widget && widget->isVisible() ? "ok\t1" : "ok\t0";
    if (!widget) return "error\tno widget " + name;
    if (command == "get") {
        if (auto* text = qobject_cast<QPlainTextEdit*>(widget))
            return "ok\t" + text->toPlainText().replace('\n', '\v');
        return "ok\t" +
               widget->property(argument.toUtf8().constData()).toString().replace('\n', '\v');
    }
    if (command == "resize") {
        widget->window()->resize(argument.toInt(), words.value(3).toInt());
        return "ok";
    }
    if (!widget->isVisible()) return "error\thidden " + name;
    if (command == "close") {  // as by the frame of the window
        QTimer::singleShot(0, widget->window(), &QWidget::close);
        return "ok";
    }
    if (command == "click") {
        if (!widget->isEnabled()) return "error\tdisabled " + name;
        Mouse(widget, widget->rect().center());
        return "ok";
    }
    if (command == "key") {
        widget->setFocus();
        Key(widget, QKeySequence(argument));
        return "ok";
    }
    if (command == "type") {
        auto* field = qobject_cast<QLineEdit*>(widget);
        if (!field) return "error\tno text field";
        // As typed over what is there: a text that was only set does not count as changed.
        field->setFocus();
        field->selectAll();
        field->insert(argument);
        return "ok";
    }
    if (command == "choose") {
        auto* menu = qobject_cast<QComboBox*>(widget);
        const int index = menu ? menu->findText(argument) : -1;
        if (index < 0) return "error\tno choice " + argument;
        menu->setCurrentIndex(index);
        QMetaObject::invokeMethod(menu, "activated", Q_ARG(int, index));
        return "ok";
    }
    if (command == "row") {  // row NAME click|pick|expand|state|rows PATH
        auto* view = qobject_cast<QTreeView*>(widget);
        if (!view) return "error\tno list";
        const QString path = words.value(3);
        const QModelIndex row =
            path.isEmpty() ? QModelIndex() : FindRow(view->model(), path.split('\v'));
        if (!path.isEmpty() && !row.isValid()) return "error\tno row " + path;
        if (argument == "rows")
            return "ok\t" + QString::number(view->model()->rowCount(row.siblingAtColumn(0)));
        if (argument == "state")
            return "ok\t" + row.siblingAtColumn(0).data(Qt::CheckStateRole).toString();
        view->scrollTo(row);
        if (argument == "expand") {
            view->setExpanded(row.siblingAtColumn(0), true);
            view->setExpanded(row, true);
            return "ok";
        }
        if (argument == "click" || argument == "pick") {  // pick: not where a text can be edited
            const QPersistentModelIndex cell = argument == "pick" ? row.siblingAtColumn(0) : row;
            // Where it is then: rows that arrive in between move it.
            QTimer::singleShot(0, view, [view, cell] {
                if (!cell.isValid()) return;
                view->scrollTo(cell);
                Mouse(view->viewport(), view->visualRect(cell).center());
                QCoreApplication::sendPostedEvents(view->viewport());
            });
            return "ok";
        }
    }
    return "error\tunknown command " + command;
}

class Puppet : public QObject {
public:
    explicit Puppet(const QString& path) {
        fListener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.toLocal8Bit().constData(), sizeof address.sun_path);
        ::unlink(address.sun_path);
        if (::bind(fListener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(fListener, 1) != 0) {
            qFatal("puppet: no socket at %s", address.sun_path);
        }
        auto* notifier = new QSocketNotifier(fListener, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this] { Accept(); });
    }

private:
    void Accept() {
        const int connection = ::accept4(fListener, nullptr, nullptr, SOCK_CLOEXEC);
        auto* notifier = new QSocketNotifier(connection, QSocketNotifier::Read, this);
        auto pending = std::make_shared<QByteArray>();
        connect(notifier, &QSocketNotifier::activated, this, [notifier, connection, pending] {
            char part[4096];
            const ssize_t size = ::read(connection, part, sizeof part);
            if (size <= 0) {
                notifier->setEnabled(false);
                notifier->deleteLater();
                ::close(connection);
                return;
            }
            pending->append(part, size);
            for (qsizetype end; (end = pending->indexOf('\n')) >= 0;) {
                const QString line = QString::fromUtf8(pending->left(end));
                pending->remove(0, end + 1);
                const QByteArray answer = Run(line.split('\t')).replace('\n', ' ').toUtf8() + '\n';
                if (::write(connection, answer.constData(), answer.size()) < 0) return;
            }
        });
    }
    int fListener = -1;
};

}  // namespace

class PuppetPlugin : public QGenericPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "puppet.json")
public:
    QObject* create(const QString& name, const QString& path) override {
        return name == "puppet" ? new Puppet(path) : nullptr;
    }
};

#include "Puppet.moc"
