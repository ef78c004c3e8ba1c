// Visualization tools: keypoints and matches drawn into image files, and the
// interactive match viewer.
#pragma once

void KeyShow(int argc, char** argv);
void KeyMyShow(int argc, char** argv);
void MatShow(int argc, char** argv);
void MatMyShow(int argc, char** argv);
void MatVis(int argc, char** argv);
