// A menu at a control: opened by the right button, a long press or the menu key.
import { element } from './page.js';
import { clamp } from './setting.js';

export interface Item {
  name: string;
  /** Whether it is the one of now; items without it are commands. */
  chosen?: boolean;
  run(): void;
}

let close = (_refocus: boolean): void => {};

/** Opens a menu of items at a control on the chart; the focus comes back to the control. */
export function openMenu(owner: HTMLElement, items: Item[]): void {
  close(false);
  const view = element('view'), menu = document.createElement('div');
  menu.className = 'menu';
  menu.setAttribute('role', 'menu');
  menu.setAttribute('aria-label', owner.ariaLabel ?? '');
  const outside = (event: Event) => {
    if (!menu.contains(event.target as Node)) close(false);
  };
  close = (refocus) => {
    close = () => {};
    removeEventListener('pointerdown', outside, true);
    menu.remove();
    if (refocus) owner.focus();
  };
  const buttons = items.map(({ name, chosen, run }) => {
    const button = menu.appendChild(document.createElement('button'));
    button.type = 'button';
    button.textContent = name;
    button.tabIndex = -1;
    button.setAttribute('role', chosen === undefined ? 'menuitem' : 'menuitemradio');
    if (chosen !== undefined) button.setAttribute('aria-checked', String(chosen));
    button.onclick = () => {
      close(true);
      run();
    };
    return button;
  });
  menu.onkeydown = (event) => {
    const at = buttons.indexOf(document.activeElement as HTMLButtonElement), last = buttons.length - 1;
    const to = { ArrowDown: at === last ? 0 : at + 1, ArrowUp: at <= 0 ? last : at - 1, Home: 0, End: last }[event.key];
    if (to !== undefined) buttons[to].focus();
    else if (event.key === 'Escape' || event.key === 'Tab') close(true);
    else return;
    event.preventDefault();
    event.stopPropagation();
  };
  menu.ondblclick = (event) => event.stopPropagation();
  menu.oncontextmenu = (event) => event.preventDefault();
  view.append(menu);
  menu.style.left = `${clamp(owner.offsetLeft + 34, [0, Math.max(0, view.clientWidth - menu.offsetWidth)])}px`;
  menu.style.top = `${clamp(owner.offsetTop - 10, [0, Math.max(0, view.clientHeight - menu.offsetHeight)])}px`;
  (buttons[items.findIndex(({ chosen }) => chosen)] ?? buttons[0]).focus();
  addEventListener('pointerdown', outside, true);
}
