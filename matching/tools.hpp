// Matching tools: two descriptor stores in, one match file out, best first.
#pragma once

// MatNN des1.xml des2.xml match.txt [ brute | flann ]
void MatNN(int argc, char** argv);
// MatMutuo des1.xml des2.xml match.txt [ brute | flann ]: mutual nearest neighbours
void MatMutuo(int argc, char** argv);
// MatRatio des1.xml des2.xml match.txt [ratio=val | acrate=val | ordem=r ou d | brute | flann ]
void MatRatio(int argc, char** argv);
