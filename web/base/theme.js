// Dark or light: as the system has it, until the reader switches.
import { add } from "./elements.js";

const root = document.documentElement;
const systemIsDark = matchMedia("(prefers-color-scheme: dark)");
const watchers = [];

function choose(theme) {
  root.dataset.theme = theme;
  for (const action of watchers) action();
}

const ofSystem = () => (systemIsDark.matches ? "dark" : "light");

/** Calls `action` whenever colours have changed. */
export const watchTheme = (action) => watchers.push(action);

export function addThemeSwitch(parent) {
  const follow = () => choose(ofSystem());
  const button = add(parent, "button", {
    type: "button",
    class: "quiet",
    id: "theme",
    title: "Switch between dark and light",
  });
  watchTheme(
    () => (button.textContent = root.dataset.theme === "dark" ? "\u2600 Light" : "\u263e Dark"),
  );
  button.addEventListener("click", () => {
    systemIsDark.removeEventListener("change", follow);
    choose(root.dataset.theme === "dark" ? "light" : "dark");
  });
  systemIsDark.addEventListener("change", follow);
  // Paper is white, and browsers leave backgrounds out.
  let beforePrint;
  addEventListener("beforeprint", () => {
    beforePrint = root.dataset.theme;
    choose("light");
  });
  addEventListener("afterprint", () => choose(beforePrint));
  follow();
}
