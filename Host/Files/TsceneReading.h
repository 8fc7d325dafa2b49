#pragma once
// Whether a scene file is being read. Nodes then take the values the file
// gives as they stand, without the reactions an edit would have (a new start
// time, for one, does not move the initial ages the file also holds).

bool isReadingSceneFile();

class TsceneReadingScope {
public:
    TsceneReadingScope();
    ~TsceneReadingScope();
    TsceneReadingScope(const TsceneReadingScope&) = delete;
    TsceneReadingScope& operator=(const TsceneReadingScope&) = delete;
};
