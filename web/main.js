// The page of one run, or of what changed between two.
import { readData, Run } from "./model/run.js";
import { showRun } from "./run_page.js";
import { showDifferences } from "./differences_page.js";

const data = readData();
if (data.kind === "differences") showDifferences(data);
else showRun(new Run(data));
document.documentElement.dataset.ready = "";
