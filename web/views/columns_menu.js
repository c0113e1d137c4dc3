// Which columns the table shows.
import { add } from "../base/elements.js";

export function addColumnsMenu(parent, known, state) {
  const details = add(parent, "details", { class: "menu" });
  add(details, "summary", { text: "Columns" });
  const list = add(details, "div", { class: "menu-list" });
  for (const { key, title } of [{ key: "module", title: "Module" }, ...known]) {
    const label = add(list, "label");
    const box = add(label, "input", {
      type: "checkbox",
      checked: state.get("columns").includes(key),
      name: key,
    });
    add(label, "span", { text: title });
    box.addEventListener("change", () => {
      const others = state.get("columns").filter((other) => other !== key);
      state.set({ columns: box.checked ? [...others, key] : others });
    });
    state.watch(["columns"], () => (box.checked = state.get("columns").includes(key)));
  }
  const close = (event) => {
    if (!details.contains(event.target)) details.open = false;
  };
  document.addEventListener("click", close);
  details.addEventListener("keydown", (key) => {
    if (key.key !== "Escape") return;
    details.open = false;
    details.firstChild.focus();
  });
}
