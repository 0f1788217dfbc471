#include "ui/desktop/LibraryWindow.h"

#include <QDateTime>
#include <QEvent>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyledItemDelegate>
#include <QVBoxLayout>
#include <algorithm>
#include <cstdint>

namespace rilo::ui {

namespace {

const QSize coverSize(256, 144);
constexpr qreal coverCornerRadius = 8;

QString text(const std::string& utf8) {
    return QString::fromStdString(utf8);
}

// "m:ss", or "h:mm:ss" from an hour on.
QString durationText(ProjectTime duration) {
    const std::int64_t total = std::max<std::int64_t>(0, duration.cliMilliseconds() / 1000);
    const std::int64_t hours = total / 3600;
    const std::int64_t minutes = total / 60 % 60;
    const std::int64_t seconds = total % 60;
    const auto twoDigits = [](std::int64_t value) { return QString::number(value).rightJustified(2, '0'); };
    if (hours > 0) {
        return QString::number(hours) + ':' + twoDigits(minutes) + ':' + twoDigits(seconds);
    }
    return QString::number(minutes) + ':' + twoDigits(seconds);
}

QString dateText(IsoDate date) {
    return QDateTime::fromSecsSinceEpoch(date.secondsSinceEpoch).toString("yyyy-MM-dd HH:mm");
}

QString titleOf(const RecentProject& project) {
    return project.sourceTitle.empty() ? QStringLiteral("未命名录制") : text(project.sourceTitle);
}

// The cover filling the card's picture area, cropped to it, with rounded corners.
QPixmap coverPixmap(const RgbaImage& cover) {
    QPixmap pixmap(coverSize);
    pixmap.fill(Qt::transparent);
    const QImage image(cover.pixels.data(), cover.width, cover.height, cover.width * 4,
                       QImage::Format_RGBA8888);
    const QImage scaled = image.scaled(coverSize, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(QPointF(0, 0), QSizeF(coverSize)), coverCornerRadius, coverCornerRadius);
    painter.setClipPath(clip);
    painter.drawImage(
        QPoint((coverSize.width() - scaled.width()) / 2, (coverSize.height() - scaled.height()) / 2), scaled);
    return pixmap;
}

// What a card shows while its cover loads.
QPixmap placeholderPixmap(const QPalette& palette) {
    QPixmap pixmap(coverSize);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(palette.color(QPalette::Mid));
    painter.drawRoundedRect(QRectF(QPointF(0, 0), QSizeF(coverSize)), coverCornerRadius, coverCornerRadius);
    return pixmap;
}

// Draws a card: the cover, then the first line of the item's text (the
// title) in bold and the rest (duration and date) dimmed, in the palette's
// colours; a selected card is ringed in the highlight colour.
class ProjectCardDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        const QRect card = option.rect.adjusted(4, 4, -4, -4);
        const QRect cover(card.left() + (card.width() - coverSize.width()) / 2, card.top() + 8,
                          coverSize.width(), coverSize.height());
        if (option.state & QStyle::State_Selected) {
            painter->setPen(QPen(option.palette.color(QPalette::Highlight), 3));
            painter->setBrush(Qt::NoBrush);
            painter->drawRoundedRect(QRectF(cover).adjusted(-3, -3, 3, 3), coverCornerRadius + 3,
                                     coverCornerRadius + 3);
        }
        index.data(Qt::DecorationRole).value<QIcon>().paint(painter, cover);

        const QStringList lines = index.data(Qt::DisplayRole).toString().split('\n');
        QFont titleFont = option.font;
        titleFont.setBold(true);
        const QFontMetrics titleMetrics(titleFont);
        QRect line(cover.left(), cover.bottom() + 10, cover.width(), titleMetrics.height());
        painter->setFont(titleFont);
        painter->setPen(option.palette.color(QPalette::WindowText));
        painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter,
                          titleMetrics.elidedText(lines.value(0), Qt::ElideRight, line.width()));
        const QFontMetrics detailMetrics(option.font);
        line = QRect(line.left(), line.bottom() + 4, line.width(), detailMetrics.height());
        painter->setFont(option.font);
        painter->setPen(option.palette.color(QPalette::PlaceholderText));
        painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter,
                          detailMetrics.elidedText(lines.mid(1).join(' '), Qt::ElideRight, line.width()));
        painter->restore();
    }

    QSize sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const override { return cardSize(); }

    static QSize cardSize() { return QSize(coverSize.width() + 24, coverSize.height() + 72); }
};

} // namespace

LibraryWindow::LibraryWindow(AppModel& model)
    : model_(model)
    , pages_(new QStackedWidget)
    , grid_(new QListWidget)
    , emptyState_(new QWidget)
    , message_(new QLabel)
    , openButton_(new QPushButton(QStringLiteral("打开")))
    , deleteButton_(new QPushButton(QStringLiteral("删除"))) {
    setWindowTitle(QStringLiteral("Rilo"));
    resize(960, 640);

    auto* heading = new QLabel(QStringLiteral("项目"));
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.6);
    headingFont.setBold(true);
    heading->setFont(headingFont);

    message_->setObjectName("libraryMessage");
    message_->setWordWrap(true);
    message_->setForegroundRole(QPalette::BrightText);
    message_->setBackgroundRole(QPalette::Highlight);
    message_->setAutoFillBackground(true);
    message_->setMargin(8);
    message_->hide();

    grid_->setObjectName("projectGrid");
    grid_->setViewMode(QListView::IconMode);
    grid_->setIconSize(coverSize);
    grid_->setGridSize(ProjectCardDelegate::cardSize() + QSize(12, 12));
    grid_->setItemDelegate(new ProjectCardDelegate(grid_));
    grid_->setResizeMode(QListView::Adjust);
    grid_->setMovement(QListView::Static);
    grid_->setUniformItemSizes(true);
    grid_->setSelectionMode(QAbstractItemView::SingleSelection);
    grid_->setFrameShape(QFrame::NoFrame);
    grid_->setContentsMargins(0, 12, 0, 0);
    // The cards lie on the window's own background.
    grid_->viewport()->setAutoFillBackground(false);

    emptyState_->setObjectName("emptyState");
    auto* emptyTitle = new QLabel(QStringLiteral("还没有项目"));
    QFont emptyFont = emptyTitle->font();
    emptyFont.setPointSizeF(emptyFont.pointSizeF() * 1.4);
    emptyFont.setBold(true);
    emptyTitle->setFont(emptyFont);
    emptyTitle->setAlignment(Qt::AlignCenter);
    auto* emptyHint = new QLabel(QStringLiteral("在终端运行 rilo-record 录制桌面，录好的项目会出现在这里。"));
    emptyHint->setAlignment(Qt::AlignCenter);
    emptyHint->setWordWrap(true);
    emptyHint->setForegroundRole(QPalette::PlaceholderText);
    auto* emptyLayout = new QVBoxLayout(emptyState_);
    emptyLayout->addStretch();
    emptyLayout->addWidget(emptyTitle);
    emptyLayout->addWidget(emptyHint);
    emptyLayout->addStretch();

    pages_->addWidget(grid_);
    pages_->addWidget(emptyState_);

    openButton_->setObjectName("openProjectButton");
    deleteButton_->setObjectName("deleteProjectButton");
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(deleteButton_);
    buttons->addWidget(openButton_);

    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(20, 16, 20, 12);
    layout->addWidget(heading);
    layout->addWidget(message_);
    layout->addWidget(pages_, 1);
    layout->addLayout(buttons);
    setCentralWidget(central);
    statusBar()->setSizeGripEnabled(false);

    connect(grid_, &QListWidget::itemActivated, this, [this] { openSelected(); });
    connect(grid_, &QListWidget::itemSelectionChanged, this, [this] { updateButtons(); });
    connect(openButton_, &QPushButton::clicked, this, [this] { openSelected(); });
    connect(deleteButton_, &QPushButton::clicked, this, [this] { askToDeleteSelected(); });

    model_.setObserver([this] { showModelState(); });
    showModelState();
}

LibraryWindow::~LibraryWindow() {
    model_.setObserver({});
}

void LibraryWindow::showModelState() {
    if (model_.recentProjects() != shownProjects_) {
        rebuildGrid();
    }
    pages_->setCurrentWidget(shownProjects_.empty() && model_.phase().kind != AppModelPhase::Kind::loading
                                 ? emptyState_
                                 : static_cast<QWidget*>(grid_));
    showCovers();
    showMessages();
    showStatus();
    updateButtons();
}

void LibraryWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        // The placeholders are drawn in the palette's colours.
        shownProjects_.clear();
        showModelState();
    }
}

void LibraryWindow::rebuildGrid() {
    const std::optional<RecentProject> selected = selectedProject();
    shownProjects_ = model_.recentProjects();
    shownCovers_.clear();
    grid_->clear();
    const QPixmap placeholder = placeholderPixmap(palette());
    for (const RecentProject& project : shownProjects_) {
        QString label = titleOf(project);
        if (project.state == ProjectState::recovered) {
            label += QStringLiteral("（已恢复）");
        }
        label += '\n' + durationText(project.duration) + QStringLiteral(" · ") + dateText(project.createdAt);
        auto* item = new QListWidgetItem(QIcon(placeholder), label, grid_);
        item->setData(packageRole, QString::fromStdString(project.packageURL.string()));
        item->setData(coverShownRole, false);
        item->setToolTip(QString::fromStdString(project.packageURL.string()));
        if (selected && selected->packageURL == project.packageURL) {
            item->setSelected(true);
        }
    }
}

void LibraryWindow::showCovers() {
    const auto& covers = model_.recentProjectCovers();
    for (int row = 0; row < grid_->count(); ++row) {
        QListWidgetItem* item = grid_->item(row);
        const std::filesystem::path package = item->data(packageRole).toString().toStdString();
        const auto cover = covers.find(package);
        if (cover == covers.end() || shownCovers_.contains(package) || cover->second.width <= 0 ||
            cover->second.height <= 0) {
            continue;
        }
        item->setIcon(QIcon(coverPixmap(cover->second)));
        item->setData(coverShownRole, true);
        shownCovers_.insert(package);
    }
}

void LibraryWindow::showMessages() {
    QStringList lines;
    if (model_.recoverableProjectCount() > 0) {
        lines << QStringLiteral("发现 %1 个中断的录制。").arg(model_.recoverableProjectCount());
    }
    if (const auto& message = model_.projectLibraryMessage()) {
        lines << text(*message);
    }
    message_->setText(lines.join('\n'));
    message_->setVisible(!lines.isEmpty());
}

void LibraryWindow::showStatus() {
    const AppModelPhase& phase = model_.phase();
    QString status;
    switch (phase.kind) {
    case AppModelPhase::Kind::loading:
        status = QStringLiteral("正在载入项目…");
        break;
    case AppModelPhase::Kind::openingProject:
        status = QStringLiteral("正在打开项目…");
        break;
    case AppModelPhase::Kind::ready:
        if (const auto& snapshot = model_.currentSnapshot()) {
            status = QStringLiteral("已打开项目：") + text(snapshot->manifest.source.title);
        }
        break;
    case AppModelPhase::Kind::failed:
        status = text(phase.failureMessage);
        break;
    default:
        if (!model_.recentProjects().empty()) {
            status = QStringLiteral("共 %1 个项目").arg(model_.recentProjects().size());
        }
        break;
    }
    statusBar()->showMessage(status);
}

void LibraryWindow::updateButtons() {
    const bool hasSelection = selectedProject().has_value();
    const bool isBusy = model_.phase().kind == AppModelPhase::Kind::loading ||
                        model_.phase().kind == AppModelPhase::Kind::openingProject;
    openButton_->setEnabled(hasSelection && !isBusy);
    deleteButton_->setEnabled(hasSelection && !isBusy);
    openButton_->setVisible(!shownProjects_.empty());
    deleteButton_->setVisible(!shownProjects_.empty());
}

std::optional<RecentProject> LibraryWindow::selectedProject() const {
    const QList<QListWidgetItem*> selected = grid_->selectedItems();
    if (selected.isEmpty()) {
        return std::nullopt;
    }
    const std::filesystem::path package = selected.front()->data(packageRole).toString().toStdString();
    for (const RecentProject& project : shownProjects_) {
        if (project.packageURL == package) {
            return project;
        }
    }
    return std::nullopt;
}

void LibraryWindow::openSelected() {
    if (const std::optional<RecentProject> project = selectedProject()) {
        model_.openProject(*project);
    }
}

void LibraryWindow::askToDeleteSelected() {
    const std::optional<RecentProject> project = selectedProject();
    if (!project) {
        return;
    }
    auto* confirmation =
        new QMessageBox(QMessageBox::Warning, QStringLiteral("删除项目"),
                        QStringLiteral("删除“%1”？").arg(titleOf(*project)), QMessageBox::NoButton, this);
    confirmation->setObjectName("deleteConfirmation");
    confirmation->setInformativeText(QStringLiteral("项目和其中的录制文件会一并删除，无法撤销。"));
    QPushButton* confirm = confirmation->addButton(QStringLiteral("删除"), QMessageBox::DestructiveRole);
    confirmation->addButton(QStringLiteral("取消"), QMessageBox::RejectRole);
    confirmation->setAttribute(Qt::WA_DeleteOnClose);
    connect(confirmation, &QMessageBox::buttonClicked, this,
            [this, confirm, project = *project](QAbstractButton* clicked) {
                if (clicked == confirm) {
                    model_.deleteProject(project, {});
                }
            });
    confirmation->open();
}

} // namespace rilo::ui
