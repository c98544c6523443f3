// The yardstick for start-up figures: a bare Qt widgets window with four tabs.
#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QTabWidget>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QMainWindow window;
    auto* tabs = new QTabWidget(&window);
    for (const char* name : {"Solutions", "Certificates", "Key Status", "Advanced"})
        tabs->addTab(new QLabel(name), name);
    window.setCentralWidget(tabs);
    window.setWindowTitle("bare tabs");
    window.resize(640, 480);
    window.show();
    return app.exec();
}
