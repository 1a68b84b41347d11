// Offscreen Qt for the interface tests, and screenshots a person can open.
#pragma once

#include <QApplication>
#include <QWidget>
#include <string>

namespace toverin::testing {

// The process's QApplication on the offscreen platform.
QApplication& QtApp();
// Saves `widget` as build/screenshots/<name>.png and returns the path.
std::string SaveScreenshot(QWidget* widget, const std::string& name);
// Runs the event loop for `ms` milliseconds.
void Pump(int ms);

}  // namespace toverin::testing
