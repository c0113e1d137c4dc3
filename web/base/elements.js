// Making elements. Whatever is shown goes in as text, never as markup.
import { select } from "d3-selection";

/** A new element behind the last of `parent`. `attributes` may have a `class`, a `text` and `on...`. */
export function add(parent, tag, attributes = {}) {
  const element = parent.appendChild(document.createElement(tag));
  for (const [name, value] of Object.entries(attributes)) {
    if (name === "text") element.textContent = value;
    else if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else if (value !== undefined && value !== null && value !== false)
      element.setAttribute(name, value === true ? "" : value);
  }
  return element;
}

/** A part of the page with its heading; gives where controls and contents go. */
export function addSection(parent, id, title, help) {
  const section = add(parent, "section", { class: "card", id, "aria-labelledby": `${id}-title` });
  const head = add(section, "div", { class: "card-head" });
  add(head, "h2", { id: `${id}-title`, text: title });
  if (help) add(head, "p", { class: "help", text: help });
  return { section, controls: add(head, "div", { class: "controls" }) };
}

/** Buttons of which one is pressed. `choices` is [[value, title, help]]; a title may be a function. */
export function addChoice(parent, label, choices, chosen, onchoose) {
  const group = add(parent, "div", { class: "choice", role: "group", "aria-label": label });
  const show = (value) => {
    select(group)
      .selectAll("button")
      .data(choices)
      .join((enter) =>
        enter
          .append("button")
          .attr("type", "button")
          .attr("title", ([, , help]) => help ?? null)
          .on("click", ([choice]) => onchoose(choice)),
      )
      .text(([, title]) => (typeof title === "function" ? title() : title))
      .attr("aria-pressed", ([choice]) => choice === value);
  };
  show(chosen);
  return show;
}

/** A list to choose from; `options` is [[value, title]]. */
export function addSelect(parent, label, options, chosen, onchoose) {
  const frame = add(parent, "label", { class: "select" });
  add(frame, "span", { text: label });
  const list = add(frame, "select", { onchange: () => onchoose(list.value) });
  for (const [value, title] of options) add(list, "option", { value, text: title });
  list.value = chosen;
  return list;
}

/** Shows a part of the page and moves the focus into it. */
export function goTo(id) {
  const part = document.getElementById(id);
  part.scrollIntoView({ block: "start" });
  (part.querySelector("[tabindex='0']") ?? part.querySelector("button"))?.focus({ preventScroll: true });
}
