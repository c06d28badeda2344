// The list of the windows with 1,000,000 rows of ten columns under one parent, beside Qt's two
// stock ways to fill a tree. Each runs in a process of its own, so that the memory is its own too.
// bench_list [rows]
//
// link: velmoraclient
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QScrollBar>
#include <QStandardItemModel>
#include <QTreeWidget>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "client/uikit/KTColumnListView.h"
#include "client/uikit/KTWindowLooper.h"

namespace {

constexpr int kColumns = 10;

struct Figures {
    double fill = 0, bytes = 0, expand = 0, markAll = 0, scroll = 0, scrollWorst = 0;
};

double ResidentBytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

double Milliseconds(const std::function<void()>& work) {
    QElapsedTimer timer;
    timer.start();
    work();
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

std::string NameOf(int row) {
    return "document-" + std::to_string(row) + (row % 3 == 0 ? ".jpeg" : ".txt");
}

// `fill` makes the rows and gives what has to live on; `expand` opens the one parent.
Figures Measure(QTreeView& view, const std::function<void()>& fill,
                const std::function<void()>& expand, const std::function<void()>& markAll,
                int rows) {
    Figures figures;
    view.resize(1000, 700);
    view.show();
    QApplication::processEvents();
    const double before = ResidentBytes();
    figures.fill = Milliseconds(fill);
    ::malloc_trim(0);
    figures.bytes = (ResidentBytes() - before) / rows;
    QApplication::processEvents();
    figures.expand = Milliseconds([&] {
        expand();
        view.viewport()->repaint();
    });
    figures.markAll = Milliseconds(markAll);
    QApplication::processEvents();
    constexpr int kSteps = 60;
    double sum = 0;
    for (int i = 0; i < kSteps; ++i) {
        const double step = Milliseconds([&] {
            view.verticalScrollBar()->setValue(rows / 2 + i * 3);
            view.viewport()->repaint();
            QApplication::processEvents();
        });
        sum += step;
        figures.scrollWorst = std::max(figures.scrollWorst, step);
    }
    figures.scroll = sum / kSteps;
    return figures;
}

Figures Ours(int rows) {
    KTWindowLooper looper;
    std::vector<KTColumn> columns;
    columns.emplace_back("", 16, 20, KTColumnKind::Icon);
    columns.emplace_back("Name", 230, 20);
    columns.emplace_back("Size", 70, 20, KTColumnKind::Number);
    columns.emplace_back("Date", 150, 20, KTColumnKind::Time);
    columns.emplace_back("Type", 70, 20, KTColumnKind::Number);
    columns.emplace_back("File", 120, 20);
    columns.emplace_back("Redirect", 70, 20);
    for (const char* name : {"MediaNr", "Offset", "Index"})
        columns.emplace_back(name, 70, 20, KTColumnKind::Number);
    KTColumnListView view("lst_bench", KTColumnListView::ListType::Multiple, columns, nullptr);
    view.SetOutline(true);
    KTRow top = kNoRow;
    return Measure(
        view,
        [&] {
            const std::string_view topTexts[] = {"Disk", "Disk", " "};
            top = view.Rows().AddUnder(kNoRow, {topTexts, {}, true, false, 0});
            // In batches, as a catalogue hands them over.
            constexpr int kBatch = 4096;
            struct Values {
                std::string name;
                std::string_view texts[3];
                int64_t numbers[7];
            };
            std::vector<Values> values(kBatch);
            std::vector<KTRowData> data;
            for (int row = 0; row < rows;) {
                data.clear();
                for (int i = 0; i < kBatch && row < rows; ++i, ++row) {
                    Values& v = values[static_cast<size_t>(i)];
                    v.name = NameOf(row);
                    v.texts[0] = v.texts[1] = v.name;
                    v.texts[2] = " ";
                    const int64_t numbers[] = {1,         row * 1000, 1700000000 + row, 0, 1,
                                               row * 512, row};
                    std::copy(std::begin(numbers), std::end(numbers), v.numbers);
                    data.push_back({v.texts, v.numbers, false, false, 0});
                }
                view.Rows().AddList(top, data);
            }
        },
        [&] { view.Expand(top); }, [&] { view.MultiSelectAll(true); }, rows);
}

Figures TreeWidget(int rows) {
    QTreeWidget view;
    view.setUniformRowHeights(true);
    view.setColumnCount(kColumns);
    QTreeWidgetItem* top = nullptr;
    return Measure(
        view,
        [&] {
            top = new QTreeWidgetItem(&view, {"Disk"});
            QList<QTreeWidgetItem*> items;
            items.reserve(rows);
            for (int row = 0; row < rows; ++row) {
                const QString name = QString::fromStdString(NameOf(row));
                auto* item = new QTreeWidgetItem(
                    {name, QString::number(row * 1000LL), QString::number(1700000000 + row), "0",
                     name, " ", "1", QString::number(row * 512LL), QString::number(row), "x"});
                item->setCheckState(0, Qt::Unchecked);
                items.append(item);
            }
            top->addChildren(items);
        },
        [&] { top->setExpanded(true); },
        [&] {
            // Told one by one the view looks for each of them: minutes. This is its best case.
            const QSignalBlocker blocker(view.model());
            for (int i = 0; i < top->childCount(); ++i)
                top->child(i)->setCheckState(0, Qt::Checked);
        },
        rows);
}

Figures StandardModel(int rows) {
    QTreeView view;
    view.setUniformRowHeights(true);
    QStandardItemModel model(0, kColumns);
    view.setModel(&model);
    QStandardItem* top = nullptr;
    return Measure(
        view,
        [&] {
            top = new QStandardItem("Disk");
            for (int row = 0; row < rows; ++row) {
                const QString name = QString::fromStdString(NameOf(row));
                QList<QStandardItem*> items;
                for (const QString& text :
                     {name, QString::number(row * 1000LL), QString::number(1700000000 + row),
                      QString("0"), name, QString(" "), QString("1"), QString::number(row * 512LL),
                      QString::number(row), QString("x")})
                    items.append(new QStandardItem(text));
                items[0]->setCheckable(true);
                top->appendRow(items);
            }
            model.appendRow(top);
        },
        [&] { view.expand(top->index()); },
        [&] {
            const QSignalBlocker blocker(&model);
            for (int i = 0; i < top->rowCount(); ++i)
                top->child(i)->setCheckState(Qt::Checked);
        },
        rows);
}

void Run(const char* name, Figures (*measure)(int), int rows) {
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
        int argc = 1;
        char program[] = "bench_list";
        char* argv[] = {program, nullptr};
        QApplication application(argc, argv);
        const Figures f = measure(rows);
        std::printf("| %-18s | %8.0f | %10.0f | %12.1f | %8.1f | %9.2f | %9.2f |\n", name, f.fill,
                    f.bytes, f.expand, f.markAll, f.scroll, f.scrollWorst);
        std::fflush(stdout);
        ::_exit(0);  // taking a million items apart is not what is measured
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) < 0 || status != 0)
        std::printf("| %-18s | failed |\n", name);
}

}  // namespace

int main(int argc, char** argv) {
    const int rows = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1000000;
    std::printf("%d rows of %d columns under one parent, offscreen\n\n", rows, kColumns);
    std::printf(
        "| %-18s | fill, ms | bytes/row  | open+draw ms | mark, ms | scroll ms | worst ms  |\n",
        "list");
    std::printf(
        "|--------------------|---------:|-----------:|-------------:|---------:|----------:|------"
        "----:|\n");
    Run("KTColumnListView", Ours, rows);
    Run("QTreeWidget", TreeWidget, rows);
    Run("QStandardItemModel", StandardModel, rows);
    return 0;
}
