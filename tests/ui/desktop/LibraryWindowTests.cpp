// The library window on a real X server, over a model whose library holds
// real recorded packages.

#include "capture/RecordingMachineFacts.h"
#include "support/BuildCatalog.h"
#include "support/CliLibraryTest.h"
#include "support/RecordedPackage.h"
#include "support/TestPaths.h"
#include "ui/desktop/LibraryWindow.h"
#include "ui/desktop/QtMainRunLoop.h"
#include "ui/desktop/QtTestApplication.h"

#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>
#include <cstdlib>
#include <gtest/gtest.h>

namespace rilo::testing {
namespace {

using namespace std::chrono_literals;
using ui::LibraryWindow;

constexpr std::chrono::milliseconds patience = 60s;

class LibraryWindowTest : public CliLibraryTest {
protected:
    void SetUp() override {
        if (!XvfbServer::isAvailable()) {
            GTEST_SKIP() << "Xvfb is not installed";
        }
        QtTestApplication::get();
    }

    void TearDown() override {
        window.reset();
        model.reset();
        loop.reset();
    }

    // A finished recording of the desktop picture with this title, length and date.
    ProjectPackage record(const std::string& title, ProjectTime duration, const std::string& date) {
        RecordedPackageOptions options;
        options.movie.duration = duration;
        options.movie.screen.pixelSize = {640, 360};
        options.movie.screen.picture = MoviePicture::desktop;
        const RecordedPackage recorded = makeRecordedPackage(store, options);
        ProjectManifest manifest = store.readManifest(recorded.package);
        manifest.source.title = title;
        manifest.createdAt = *IsoDate::parse(date);
        manifest.updatedAt = manifest.createdAt;
        store.updateManifest(manifest, recorded.package);
        return recorded.package;
    }

    void showWindow() {
        AppModelEnvironment environment;
        environment.libraryDirectory = library;
        environment.deviceFrameCatalog = buildCatalog;
        environment.deviceFrameResourceDirectory = buildDirectory();
        environment.coverCacheDirectory = coverCache.path();
        environment.makePlayer = [](const ProjectSnapshot&) { return std::unique_ptr<ProjectPlayer>(); };
        environment.machineFacts = [] { return currentMachineFacts(std::nullopt); };
        environment.soundsDirectory = buildDirectory() / "sounds";
        environment.userDefaults = std::make_shared<UserDefaults>(dataHome / "settings.json");
        loop = std::make_unique<ui::QtMainRunLoop>();
        model = std::make_unique<AppModel>(*loop, std::move(environment), false, false);
        window = std::make_unique<LibraryWindow>(*model);
        model->bootstrap();
        window->show();
        ASSERT_TRUE(waitFor([&] { return model->phase().kind != AppModelPhase::Kind::loading; }));
    }

    template <class Condition>
    bool waitFor(Condition condition) {
        return QtTestApplication::processEventsUntil(condition, patience);
    }

    QListWidget* grid() const { return window->findChild<QListWidget*>("projectGrid"); }
    QPushButton* button(const char* name) const { return window->findChild<QPushButton*>(name); }

    bool coversShown() const {
        for (int row = 0; row < grid()->count(); ++row) {
            if (!grid()->item(row)->data(LibraryWindow::coverShownRole).toBool()) {
                return false;
            }
        }
        return true;
    }

    void select(const ProjectPackage& package) {
        for (int row = 0; row < grid()->count(); ++row) {
            QListWidgetItem* item = grid()->item(row);
            if (item->data(LibraryWindow::packageRole).toString().toStdString() == package.rootURL.string()) {
                grid()->setCurrentItem(item);
                return;
            }
        }
        FAIL() << "not listed: " << package.rootURL;
    }

    // Presses the delete button and answers the confirmation with this button.
    void deleteSelected(const QString& answer) {
        button("deleteProjectButton")->click();
        QMessageBox* confirmation = nullptr;
        ASSERT_TRUE(waitFor([&] {
            confirmation = window->findChild<QMessageBox*>("deleteConfirmation");
            return confirmation && confirmation->isVisible();
        }));
        QAbstractButton* chosen = nullptr;
        for (QAbstractButton* candidate : confirmation->buttons()) {
            if (candidate->text() == answer) {
                chosen = candidate;
            }
        }
        ASSERT_NE(chosen, nullptr);
        chosen->click();
    }

    TemporaryDirectory coverCache;
    std::unique_ptr<ui::QtMainRunLoop> loop;
    std::unique_ptr<AppModel> model;
    std::unique_ptr<LibraryWindow> window;
};

TEST_F(LibraryWindowTest, ListsTheProjectsNewestFirstWithTheirCovers) {
    const ProjectPackage oldest = record("旧的录制", ProjectTime::fromSeconds(2), "2026-01-05T09:00:00Z");
    const ProjectPackage newest = record("最新的录制", ProjectTime::fromSeconds(4), "2026-03-01T15:30:00Z");
    const ProjectPackage middle = record("上周的录制", ProjectTime::fromSeconds(3), "2026-02-20T11:10:00Z");

    showWindow();
    ASSERT_TRUE(waitFor([&] { return grid()->count() == 3 && coversShown(); }));

    const std::vector<std::pair<ProjectPackage, QString>> expected{
        {newest, "最新的录制"}, {middle, "上周的录制"}, {oldest, "旧的录制"}};
    for (int row = 0; row < 3; ++row) {
        const QListWidgetItem* item = grid()->item(row);
        EXPECT_EQ(item->data(LibraryWindow::packageRole).toString().toStdString(),
                  expected[row].first.rootURL.string());
        EXPECT_TRUE(item->text().startsWith(expected[row].second + '\n')) << item->text().toStdString();
        EXPECT_FALSE(item->icon().isNull());
    }
    EXPECT_TRUE(grid()->item(0)->text().contains("0:04"));
    EXPECT_TRUE(grid()->isVisible());
    EXPECT_FALSE(window->findChild<QWidget*>("emptyState")->isVisible());
    EXPECT_FALSE(window->findChild<QLabel*>("libraryMessage")->isVisible());

    if (const char* write = std::getenv("RILO_WRITE_SCREENSHOTS"); write && std::string(write) == "1") {
        grid()->clearSelection();
        QtTestApplication::processEventsUntil([] { return false; }, 300ms);
        const std::filesystem::path target = sourceDirectory() / "docs/images/library-window.png";
        ASSERT_TRUE(window->grab().save(QString::fromStdString(target.string())));
    }
}

TEST_F(LibraryWindowTest, AnEmptyLibrarySaysHowToRecord) {
    showWindow();

    const QWidget* empty = window->findChild<QWidget*>("emptyState");
    ASSERT_TRUE(waitFor([&] { return empty->isVisible(); }));
    QStringList texts;
    for (const QLabel* label : empty->findChildren<QLabel*>()) {
        texts << label->text();
    }
    EXPECT_TRUE(texts.contains("还没有项目"));
    EXPECT_TRUE(texts.join('\n').contains("rilo-record"));
    EXPECT_EQ(grid()->count(), 0);
    EXPECT_FALSE(grid()->isVisible());
    EXPECT_FALSE(button("deleteProjectButton")->isVisible());
}

TEST_F(LibraryWindowTest, DeletingAsksFirstAndOnlyAConfirmedDeleteRemovesTheProject) {
    const ProjectPackage kept = record("留下的录制", ProjectTime::fromSeconds(2), "2026-01-05T09:00:00Z");
    const ProjectPackage doomed = record("要删的录制", ProjectTime::fromSeconds(2), "2026-02-05T09:00:00Z");
    showWindow();
    ASSERT_TRUE(waitFor([&] { return grid()->count() == 2; }));

    select(doomed);
    deleteSelected("取消");
    QtTestApplication::processEventsUntil([] { return false; }, 300ms);
    EXPECT_TRUE(std::filesystem::exists(doomed.rootURL));
    EXPECT_EQ(grid()->count(), 2);

    select(doomed);
    deleteSelected("删除");
    ASSERT_TRUE(waitFor([&] { return grid()->count() == 1; }));
    EXPECT_FALSE(std::filesystem::exists(doomed.rootURL));
    EXPECT_TRUE(std::filesystem::exists(kept.rootURL));
    EXPECT_EQ(grid()->item(0)->data(LibraryWindow::packageRole).toString().toStdString(),
              kept.rootURL.string());
}

TEST_F(LibraryWindowTest, OpeningAProjectOpensItInTheModelAndSaysSo) {
    record("较早的录制", ProjectTime::fromSeconds(2), "2026-01-05T09:00:00Z");
    const ProjectPackage chosen = record("要打开的录制", ProjectTime::fromSeconds(2), "2026-02-05T09:00:00Z");
    showWindow();
    ASSERT_TRUE(waitFor([&] { return grid()->count() == 2; }));
    EXPECT_FALSE(button("openProjectButton")->isEnabled());

    select(chosen);
    ASSERT_TRUE(button("openProjectButton")->isEnabled());
    button("openProjectButton")->click();

    ASSERT_TRUE(waitFor([&] { return model->phase().kind == AppModelPhase::Kind::ready; }));
    ASSERT_TRUE(model->currentSnapshot().has_value());
    EXPECT_EQ(model->currentSnapshot()->packageURL, chosen.rootURL);
    EXPECT_EQ(window->statusBar()->currentMessage(), "已打开项目：要打开的录制");
}

TEST_F(LibraryWindowTest, AnInterruptedRecordingIsListedAsRecoveredWithTheModelsReport) {
    RecordedPackageOptions options;
    options.movie.screen.picture = MoviePicture::desktop;
    options.finished = false;
    makeRecordedPackage(store, options);

    showWindow();
    ASSERT_TRUE(waitFor([&] { return grid()->count() == 1; }));
    EXPECT_TRUE(grid()->item(0)->text().contains("（已恢复）")) << grid()->item(0)->text().toStdString();
    const QLabel* message = window->findChild<QLabel*>("libraryMessage");
    EXPECT_TRUE(message->isVisible());
    EXPECT_TRUE(message->text().contains(QString::number(model->recoverableProjectCount())));
    EXPECT_EQ(model->recoverableProjectCount(), 1);
}

} // namespace
} // namespace rilo::testing
